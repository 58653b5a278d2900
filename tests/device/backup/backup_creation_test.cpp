#include "device/orlith/backup/backup_creation.h"

#include <gmock/gmock.h>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"
#include "device/orlith/backup/device_identity.h"
#include "tests/device/backup/backup_bytes.h"
#include "tests/device/backup/restoring_client.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using orlith::BackupDatabases;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char Song[] = "/var/mobile/Media/Purchases/5.mp3";

class BackupCreation : public test::LibraryTest {
protected:
    void SetUp() override {
        open();
        add({.pid = 5});
        files.createDirectory("/var/mobile/Media/Downloads");
        common::Database downloads(files.realPath(BackupDatabases::Downloads), {});
        downloads.executeScript("CREATE TABLE download(id INTEGER)");
    }
    // The backup's files; `meanwhile` runs between the copies and the writing.
    test::BackupContents backUp(const std::function<void()>& meanwhile = [] {}) {
        orlith::BackupCreation creation({client, files, activities});
        platform::OptionalError error;
        const auto prepared = creation.prepare(library->uid(), 1'700'000'000, error);
        EXPECT_TRUE(prepared) << (error ? error->text() : "");
        if (!prepared)
            return {};
        head = *prepared;
        meanwhile();
        std::string bytes;
        orlith::BackupWriter writer([&](std::span<const std::uint8_t> piece) {
            bytes.append(piece.begin(), piece.end());
            return true;
        });
        failure = creation.write(head, writer);
        test::BackupContents contents;
        if (!failure)
            failure = test::readAll(bytes, contents);
        return contents;
    }
    std::int64_t tracksIn(const std::string& database) {
        const std::string copy = directory / "copy";
        std::ofstream(copy, std::ios::binary) << database;
        common::Database opened(copy, {});
        return opened.int64("SELECT count(*) FROM item");
    }

    test::RestoringClient client;
    korvane::ActivityLock activities;
    orlith::BackupHead head;
    platform::OptionalError failure;
};

TEST_F(BackupCreation, HoldsTheDatabasesAndTheFilesThatThePlugInNames) {
    writeFile(Song, "ID3");
    client.paths = {Song};
    const auto contents = backUp();
    EXPECT_EQ(failure, std::nullopt);
    EXPECT_EQ(contents.size(), 4u);
    EXPECT_EQ(contents.at(Song), "ID3");
    EXPECT_EQ(tracksIn(contents.at(BackupDatabases::Library)), 1);
    EXPECT_EQ(head.deviceID, orlith::knownDeviceIdentity(files));
    EXPECT_EQ(head.libraryUID, library->uid());
    EXPECT_EQ(head.schemaVersion, static_cast<int>(korvane::SchemaVersion::Newest));
}

TEST_F(BackupCreation, IsOfOneMomentWhateverIsWrittenMeanwhile) {
    const auto contents = backUp([&] {
        for (std::int64_t pid = 100; pid < 200; ++pid)
            add({.pid = pid});
    });
    EXPECT_EQ(tracksIn(contents.at(BackupDatabases::Library)), 1);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 101);
}

TEST_F(BackupCreation, IsMadeWhileALongTransactionWrites) {
    library->connections().write([&](common::Database& database) {
        database.execute("UPDATE item SET disc_number = 1");
        EXPECT_EQ(backUp().size(), 3u);
        return true;
    });
}

TEST_F(BackupCreation, WhatIsNoFileIsLeftOut) {
    files.createDirectory("/var/mobile/Media/Purchases/folder");
    client.paths = {Song, "/var/mobile/Media/Purchases/folder"};
    EXPECT_EQ(backUp().size(), 3u);
}

TEST_F(BackupCreation, APlugInWithoutSuchPathsMakesABackupOfTheDatabases) {
    client.paths = {Song};
    client.lacks = {ORClientOperation::pathsToBackup};
    EXPECT_EQ(backUp().size(), 3u);
}

TEST_F(BackupCreation, AFileThatChangesMeanwhileBreaksItOff) {
    writeFile(Song, "ID3");
    client.paths = {Song};
    backUp([&] { writeFile(Song, "ID3 and more"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, EAGAIN);
    backUp([&] { files.unlink(Song); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, ENOENT);
}

TEST_F(BackupCreation, NothingIsSweptUntilItIsOver) {
    backUp([&] { EXPECT_FALSE(activities.tryHoldForSweep()); });
    EXPECT_TRUE(activities.tryHoldForSweep());
}

TEST_F(BackupCreation, LeavesNothingOnTheDevice) {
    backUp();
    EXPECT_THAT(files.subpathsOfDirectory("/var/mobile/Media/Backup"), IsEmpty());
    writeFile("/var/mobile/Media/Backup/.orlith-partial-x", "left");
    orlith::removeBackupLeftovers(files);
    EXPECT_FALSE(files.fileExists("/var/mobile/Media/Backup"));
}

}  // namespace
