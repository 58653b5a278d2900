#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "common/property_list/property_list.h"
#include "device/orlith/backup/backup_writer.h"
#include "tests/device/backup/backup_bytes.h"

namespace {

using test::BackupContents;
using test::backupOf;
using test::headOf;
using test::smallBackup;
using testing::HasSubstr;

constexpr char Song[] = "/var/mobile/Media/Purchases/5.mp3";

platform::OptionalError refusalOf(const std::string& bytes) {
    BackupContents contents;
    return test::readAll(bytes, contents);
}

std::string goodBackup() {
    const BackupContents contents = smallBackup({{Song, "ID3"}});
    return backupOf(headOf(contents), contents);
}

TEST(BackupFile, WhatIsWrittenIsReadAgain) {
    const BackupContents contents = smallBackup(
        {{Song, std::string(3'000'000, 'x')}, {"/var/mobile/Media/Purchases/ü.m4a", ""}});
    BackupContents read;
    EXPECT_EQ(test::readAll(backupOf(headOf(contents), contents), read), std::nullopt);
    EXPECT_EQ(read, contents);
}

TEST(BackupFile, TheHeadSaysWhoseBackupItIs) {
    const std::string bytes = goodBackup();
    orlith::BackupReader reader(test::sourceOf(bytes));
    platform::OptionalError error;
    const auto head = reader.readHead(error);
    ASSERT_TRUE(head);
    EXPECT_EQ(head->deviceID, "device-1");
    EXPECT_EQ(head->libraryUID, "library-1");
    EXPECT_EQ(head->schemaVersion, 1);
    EXPECT_EQ(head->created, 1'700'000'000);
    EXPECT_EQ(head->files.size(), 4u);
}

TEST(BackupFile, OneThatIsCutOffAnywhereIsRefused) {
    const std::string bytes = goodBackup();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const auto error = refusalOf(bytes.substr(0, size));
        ASSERT_TRUE(error) << size;
        EXPECT_EQ(error->code, EBADMSG) << size;
    }
}

TEST(BackupFile, OneWithAChangedByteAnywhereIsRefused) {
    const std::string bytes = goodBackup();
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::string changed = bytes;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        EXPECT_TRUE(refusalOf(changed)) << at;
    }
}

TEST(BackupFile, NothingMayFollowTheEnd) {
    EXPECT_THAT(refusalOf(goodBackup() + "x")->text(), HasSubstr("follows its end"));
}

TEST(BackupFile, ANewerVersionIsRefusedByName) {
    std::string bytes = goodBackup();
    bytes[8] = 9;
    const auto error = refusalOf(bytes);
    EXPECT_EQ(error->code, EPROTONOSUPPORT);
    EXPECT_THAT(error->text(), HasSubstr("version 9"));
}

TEST(BackupFile, AnotherFileIsNoBackup) {
    EXPECT_THAT(refusalOf(std::string(100, 'x'))->text(), HasSubstr("does not begin as one"));
    EXPECT_THAT(refusalOf("")->text(), HasSubstr("cut off"));
}

TEST(BackupFile, ALengthThatIsNotThereTakesNoMemory) {
    std::string bytes = goodBackup();
    bytes[12] = bytes[13] = bytes[14] = '\xff';
    bytes[15] = '\x01';
    EXPECT_THAT(refusalOf(bytes)->text(), HasSubstr("cut off"));
    bytes[15] = '\x7f';
    EXPECT_THAT(refusalOf(bytes)->text(), HasSubstr("too long"));
}

TEST(BackupFile, PlacesThatAreNoneAreRefused) {
    for (const char* path :
         {"/etc/passwd", "/var/mobile/Media/Purchases/../../../etc/passwd",
          "/var/mobile/Media/Purchases/..", "/var/mobile/Media/Purchases/",
          "/var/mobile/Media/Purchases/a/b.mp3", "/var/mobile/Media/Purchases/.hidden",
          "/var/mobile/Media/Purchases/a\nb.mp3", "/var/mobile/Media/Purchases/\xff.mp3",
          "var/mobile/Media/Purchases/5.mp3", "/var/mobile/Media/Tessel_Control/Music/F00/A.mp3",
          "/var/run/orlith.sock", ""}) {
        orlith::BackupHead head = headOf(smallBackup());
        head.files.push_back({path, 0});
        const auto error = orlith::problemOf(head);
        ASSERT_TRUE(error) << path;
        EXPECT_THAT(error->text(), HasSubstr("no place for a file of a backup")) << path;
    }
}

TEST(BackupFile, AFileMayStandInItOnce) {
    orlith::BackupHead head = headOf(smallBackup({{Song, ""}}));
    head.files.push_back({Song, 0});
    EXPECT_THAT(orlith::problemOf(head)->text(), HasSubstr("twice"));
}

TEST(BackupFile, EveryDatabaseHasToBeThere) {
    for (const std::string_view database : orlith::BackupDatabases::All) {
        BackupContents contents = smallBackup();
        contents.erase(std::string(database));
        EXPECT_THAT(orlith::problemOf(headOf(contents))->text(), HasSubstr("it lacks"));
    }
}

TEST(BackupFile, ItHasToSayWhoseItIs) {
    for (const char* identity : {"", "a b", "a\nb"}) {
        orlith::BackupHead head = headOf(smallBackup());
        head.deviceID = identity;
        EXPECT_TRUE(orlith::problemOf(head));
    }
}

// A head as a hostile hand would write it.
platform::OptionalError refusalOfHead(const platform::Value& root) {
    platform::OptionalError error;
    const auto bytes =
        common::serializePropertyList(root, platform::PropertyListFormat::Binary, &error);
    return refusalOf(test::backupWithHead(*bytes));
}

platform::Dictionary headWith(platform::Array files) {
    return {{"DeviceID", "a"},
            {"LibraryUID", "b"},
            {"SchemaVersion", 1},
            {"Created", platform::Date{0}},
            {"Files", std::move(files)}};
}

TEST(BackupFile, AListOfFilesThatIsNoPropertyListIsRefused) {
    EXPECT_THAT(refusalOf(test::backupWithHead({'h', 'e', 'l', 'l', 'o'}))->text(),
                HasSubstr("no property list"));
    EXPECT_THAT(refusalOfHead(platform::Array{})->text(), HasSubstr("lacks something"));
    for (const char* key : {"DeviceID", "LibraryUID", "SchemaVersion", "Created", "Files"}) {
        platform::Dictionary head = headWith({});
        head.erase(key);
        EXPECT_THAT(refusalOfHead(head)->text(), HasSubstr("lacks something")) << key;
        head[key] = platform::Data{1};
        EXPECT_THAT(refusalOfHead(head)->text(), HasSubstr("lacks something")) << key;
    }
}

TEST(BackupFile, LinksAndOtherThingsThanFilesAreRefused) {
    const auto entry = [](const platform::Value& kind, const platform::Value& size) {
        return platform::Dictionary{{"Path", Song}, {"Kind", kind}, {"Size", size}};
    };
    EXPECT_THAT(refusalOfHead(headWith({entry("link", 0)}))->text(), HasSubstr("\"link\""));
    EXPECT_THAT(refusalOfHead(headWith({entry("directory", 0)}))->text(),
                HasSubstr("\"directory\""));
    EXPECT_THAT(refusalOfHead(headWith({entry(1, 0)}))->text(), HasSubstr("no file's"));
    EXPECT_THAT(refusalOfHead(headWith({entry("file", "1")}))->text(), HasSubstr("no file's"));
    EXPECT_THAT(refusalOfHead(headWith({"text"}))->text(), HasSubstr("no file's"));
    EXPECT_THAT(refusalOfHead(headWith({entry("file", -1)}))->text(), HasSubstr("too large"));
    EXPECT_THAT(refusalOfHead(headWith({entry("file", UINT64_MAX)}))->text(),
                HasSubstr("too large"));
}

TEST(BackupFile, AFileThatChangesMeanwhileBreaksTheBackupOff) {
    for (const std::uint64_t claimed : {2u, 4u}) {
        const BackupContents contents = smallBackup({{Song, "ID3"}});
        orlith::BackupHead head = headOf(contents);
        for (orlith::BackupFile& file : head.files)
            if (file.path == Song)
                file.size = claimed;
        EXPECT_THROW(backupOf(head, contents), std::runtime_error);
    }
}

TEST(BackupFile, NobodyWhoTakesItEndsTheWriting) {
    orlith::BackupWriter writer([](std::span<const std::uint8_t>) { return false; });
    EXPECT_EQ(writer.begin(headOf(smallBackup()))->code, ECANCELED);
}

}  // namespace
