// Receiving a backup and putting it in place, on real libraries.
#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "common/sqlite/database.h"
#include "common/sqlite/database_copy.h"
#include "device/korvane/account_cache.h"
#include "device/orlith/backup/device_identity.h"
#include "device/orlith/backup/restore_area.h"
#include "device/orlith/backup/restore_receipt.h"
#include "device/orlith/backup/restore_switch.h"
#include "tests/device/backup/backup_bytes.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using orlith::BackupDatabases;
using test::BackupContents;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr char Song[] = "/var/mobile/Media/Purchases/5.mp3";
constexpr char ReplacedDirectory[] = "/var/mobile/Media/Replaced";

class Restore : public test::LibraryTest {
protected:
    Restore() {
        // The backup's library has one track, 5.
        open();
        add({.pid = 5, .title = "Backed up"});
        makeDownloads();
        contents = BackupContents{{Song, "ID3"}};
        for (const std::string_view database : BackupDatabases::All)
            contents[std::string(database)] = copyOf(std::string(database));
        uid = library->uid();
        library.reset();
        fs::remove_all(fs::path(directory.path()) / "var");
    }
    void SetUp() override {}

    void makeDownloads() {
        files.createDirectory("/var/mobile/Media/Downloads");
        common::Database database(files.realPath(BackupDatabases::Downloads), {});
        database.executeScript("CREATE TABLE IF NOT EXISTS download(id INTEGER)");
    }
    // A library with other tracks, in place.
    void makeOwnLibrary() {
        open();
        add({.pid = 7, .title = "Own"});
        add({.pid = 8, .title = "Own too"});
        library.reset();
        makeDownloads();
        writeFile("/var/mobile/Media/Purchases/7.mp3", "own");
    }
    std::string copyOf(const std::string& database) {
        const std::string copy = directory / "copy";
        fs::remove(copy);
        common::copyDatabase(files.realPath(database), copy);
        return contentOf(copy);
    }
    static std::string contentOf(const std::string& realPath) {
        std::ifstream file(realPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string fileAt(const std::string& devicePath) {
        return contentOf(files.realPath(devicePath));
    }

    platform::OptionalError receive(bool isEmpty = true, bool mayReplace = false) {
        orlith::BackupHead head = test::headOf(contents);
        head.deviceID = deviceID;
        const std::string bytes = test::backupOf(head, contents);
        orlith::RestoreReceipt receipt({files, isEmpty, false, mayReplace, 1'700'000'000});
        return receipt.receive(test::sourceOf(bytes));
    }
    void replaceInDatabase(const std::string& path, const std::string& script) {
        const std::string copy = directory / "changed";
        std::ofstream(copy, std::ios::binary) << contents[path];
        {
            common::Database database(copy, {});
            database.executeScript(script);
        }
        contents[path] = contentOf(copy);
    }
    void expectRefusal(const std::string& words) {
        const auto error = receive();
        ASSERT_TRUE(error);
        EXPECT_THAT(error->text(), HasSubstr(words));
        EXPECT_THAT(everyFileBelow("/var/mobile/Media/Restore"), IsEmpty());
    }
    std::vector<std::string> everyFileBelow(const std::string& devicePath) {
        auto names = files.subpathsOfDirectory(devicePath);
        std::erase_if(names, [&](const std::string& name) {
            const auto found = files.attributes(devicePath + "/" + name, nullptr);
            return !found || !found->isRegularFile;
        });
        std::ranges::sort(names);
        return names;
    }
    void expectRestored() {
        open();
        EXPECT_EQ(number("SELECT item_pid FROM item"), 5);
        EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
        EXPECT_NE(library->uid(), uid);
        EXPECT_EQ(fileAt(Song), "ID3");
        EXPECT_EQ(orlith::knownDeviceIdentity(files), deviceID);
        EXPECT_TRUE(orlith::RestoreArea(files).pending());
        library.reset();
    }
    std::string asideDirectory() {
        const auto names = files.contentsOfDirectory(ReplacedDirectory, nullptr);
        return names && names->size() == 1 ? ReplacedDirectory + ("/" + names->front()) : "";
    }

    BackupContents contents;
    std::string uid;  // of the backup's library
    const std::string deviceID = std::string(32, 'a');
};

TEST_F(Restore, OntoANewDeviceEverythingTakesItsPlace) {
    ASSERT_EQ(receive(), std::nullopt);
    EXPECT_FALSE(files.fileExists(BackupDatabases::Library));
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    expectRestored();
}

TEST_F(Restore, WhatWasThereIsKept) {
    makeOwnLibrary();
    writeFile(Song, "another");
    ASSERT_EQ(receive(false, true), std::nullopt);
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    EXPECT_EQ(fileAt(asideDirectory() + "/5.mp3"), "another");
    EXPECT_EQ(fileAt("/var/mobile/Media/Purchases/7.mp3"), "own");
    common::Database old(files.realPath(asideDirectory() + "/MediaLibrary.sqlitedb"), {});
    EXPECT_EQ(old.int64("SELECT count(*) FROM item"), 2);
    expectRestored();
}

TEST_F(Restore, WithNothingReadyNothingHappens) {
    makeOwnLibrary();
    EXPECT_EQ(orlith::switchToRestored(files), std::nullopt);
    EXPECT_FALSE(files.fileExists(ReplacedDirectory));
    EXPECT_FALSE(orlith::RestoreArea(files).pending());
}

TEST_F(Restore, WhatWasBeingReceivedIsForgotten) {
    orlith::RestoreArea area(files);
    ASSERT_EQ(area.begin(), std::nullopt);
    area.createFile(0, nullptr);
    EXPECT_EQ(orlith::switchToRestored(files), std::nullopt);
    EXPECT_THAT(everyFileBelow("/var/mobile/Media/Restore"), IsEmpty());
}

// Every state that the steps of a switch can leave behind.
TEST_F(Restore, GoesOnWhereverTheSwitchWasBrokenOff) {
    const std::string root = directory / "var";
    makeOwnLibrary();
    ASSERT_EQ(receive(false, true), std::nullopt);
    const std::string before = directory / "before";
    fs::copy(root, before, fs::copy_options::recursive);
    const std::string library = files.realPath(BackupDatabases::Library);
    const std::string ready = files.realPath("/var/mobile/Media/Restore/Ready");
    const std::string aside =
        files.realPath(ReplacedDirectory) + "/" + "1700000000-" + std::to_string(::getpid());
    std::size_t libraryNumber = 0;
    for (std::size_t number = 0; const auto& [path, bytes] : contents) {
        libraryNumber = path == BackupDatabases::Library ? number : libraryNumber;
        ++number;
    }
    const std::vector<std::function<void()>> steps{
        [&] { fs::create_directories(aside); },
        [&] { fs::rename(library, aside + "/MediaLibrary.sqlitedb"); },
        [&] { fs::rename(library + ".identity", aside + "/MediaLibrary.sqlitedb.identity"); },
        [&] { fs::rename(ready + "/" + std::to_string(libraryNumber), library); },
    };
    for (std::size_t done = 0; done <= steps.size(); ++done) {
        SCOPED_TRACE(done);
        fs::remove_all(root);
        fs::copy(before, root, fs::copy_options::recursive);
        for (std::size_t step = 0; step < done; ++step)
            steps[step]();
        ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
        ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
        common::Database old(aside + "/MediaLibrary.sqlitedb", {});
        EXPECT_EQ(old.int64("SELECT count(*) FROM item"), 2);
        expectRestored();
    }
}

TEST_F(Restore, AnOldLogIsNotTakenForTheRestoredDatabases) {
    makeOwnLibrary();
    const std::string log = std::string(BackupDatabases::Library) + "-wal";
    writeFile(log, std::string(100'000, 'x'));
    ASSERT_EQ(receive(false, true), std::nullopt);
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    EXPECT_FALSE(files.fileExists(log));
    EXPECT_TRUE(files.fileExists(asideDirectory() + "/MediaLibrary.sqlitedb-wal"));
    expectRestored();
}

TEST_F(Restore, OfAnotherDeviceIsRefusedWhereThereAreTracks) {
    orlith::setDeviceIdentity(files, std::string(32, 'b'));
    EXPECT_EQ(receive(false)->code, EEXIST);
    EXPECT_THAT(everyFileBelow("/var/mobile/Media/Restore"), IsEmpty());
    EXPECT_EQ(receive(false, true), std::nullopt);
    EXPECT_EQ(receive(true), std::nullopt);
    orlith::setDeviceIdentity(files, deviceID);
    EXPECT_EQ(receive(false), std::nullopt);
}

TEST_F(Restore, ALaterRestoreTakesThePlaceOfOneThatIsReady) {
    ASSERT_EQ(receive(), std::nullopt);
    contents[Song] = "later";
    ASSERT_EQ(receive(), std::nullopt);
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    EXPECT_EQ(fileAt(Song), "later");
}

TEST_F(Restore, ALibraryOfANewerVersionIsRefused) {
    replaceInDatabase(BackupDatabases::Library, "PRAGMA user_version = 1000");
    expectRefusal("newer version");
}

TEST_F(Restore, AHeadThatSpeaksOfANewerVersionIsRefusedBeforeAnythingIsReceived) {
    orlith::BackupHead head = test::headOf(contents);
    head.schemaVersion = 1000;
    const std::string bytes = test::backupOf(head, contents);
    orlith::RestoreReceipt receipt({files, true, false, false, 0});
    EXPECT_EQ(receipt.receive(test::sourceOf(bytes))->code, EPROTONOSUPPORT);
    EXPECT_EQ(receipt.files(), 0u);
}

TEST_F(Restore, AnOlderLibraryIsBroughtUpToDate) {
    replaceInDatabase(BackupDatabases::Library,
                      "DROP TRIGGER purchase_gone; DROP TABLE purchase; "
                      "DROP TRIGGER sync_id_unkept; DROP TRIGGER pending_kenning_checksum_unkept; "
                      "DROP TRIGGER cloud_artwork_token_unkept; DROP TRIGGER field_change_unkept; "
                      "DROP INDEX entity_revision_kept; "
                      "ALTER TABLE entity_revision DROP COLUMN record; PRAGMA user_version = 1");
    ASSERT_EQ(receive(), std::nullopt);
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    expectRestored();
}

TEST_F(Restore, ADatabaseWithNoiseInItIsRefused) {
    for (const std::string_view database : BackupDatabases::All) {
        const std::string good = contents[std::string(database)];
        contents[std::string(database)] = "noise" + good.substr(5);
        expectRefusal("no backup that can be read");
        contents[std::string(database)] = std::string(good.size(), 'x');
        expectRefusal("no backup that can be read");
        contents[std::string(database)] = good;
    }
}

TEST_F(Restore, ADatabaseThatActsByItselfIsRefused) {
    replaceInDatabase(BackupDatabases::Library,
                      "CREATE TRIGGER more AFTER INSERT ON item BEGIN DELETE FROM item; END");
    expectRefusal("no library has");
}

TEST_F(Restore, AListOfDownloadsThatActsByItselfIsRefused) {
    replaceInDatabase(
        BackupDatabases::Downloads,
        "CREATE TRIGGER more AFTER INSERT ON download BEGIN DELETE FROM download; END");
    expectRefusal("none has");
}

TEST_F(Restore, ALinkOnTheDeviceLeadsNothingOutOfIt) {
    ASSERT_EQ(receive(), std::nullopt);
    test::TemporaryDirectory outside;
    fs::create_directory_symlink(outside.path(), files.realPath("/var/mobile/Media/Purchases"));
    orlith::switchToRestored(files);
    EXPECT_TRUE(fs::is_empty(outside.path()));
}

TEST_F(Restore, ALibraryThatLiesInItsPlaceIsCopiedAndGoesOnAsAnother) {
    makeOwnLibrary();
    open();
    const std::string own = library->uid();
    library.reset();
    orlith::RestoreReceipt receipt({files, false, false, false, 1'700'000'000});
    ASSERT_EQ(receipt.acceptWhatIsThere(), std::nullopt);
    ASSERT_EQ(orlith::switchToRestored(files), std::nullopt);
    common::Database old(files.realPath(asideDirectory() + "/MediaLibrary.sqlitedb"), {});
    EXPECT_EQ(old.int64("SELECT count(*) FROM item"), 2);
    open();
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
    EXPECT_NE(library->uid(), own);
}

TEST_F(Restore, ALibraryThatLacksNothingIsLeftAloneUnlessAskedFor) {
    makeOwnLibrary();
    EXPECT_EQ(orlith::RestoreReceipt({files, false, true, false, 0}).acceptWhatIsThere()->code,
              EEXIST);
    EXPECT_THAT(everyFileBelow("/var/mobile/Media/Restore"), IsEmpty());
    EXPECT_EQ(orlith::RestoreReceipt({files, false, true, true, 0}).acceptWhatIsThere(),
              std::nullopt);
}

TEST_F(Restore, ADeviceKeepsTheIdentityThatItWasGiven) {
    platform::OptionalError error;
    const std::string made = orlith::deviceIdentity(files, error);
    EXPECT_EQ(made.size(), 32u);
    EXPECT_EQ(orlith::deviceIdentity(files, error), made);
    writeFile("/var/mobile/Media/Tessel_Control/Tessel/Device.identity", "../../etc");
    EXPECT_EQ(orlith::knownDeviceIdentity(files), "");
}

}  // namespace
