// Downloads into a real library.
#include "device/orlith/purchase_installer.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "common/sqlite/database.h"
#include "device/downloads/download_service.h"
#include "tests/device/downloads/download_fixture.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using downloads::DownloadItem;
using testing::ElementsAre;
using testing::SizeIs;

class PurchaseInstaller : public test::LibraryTest {
protected:
    static DownloadItem song(const std::string& title = "") {
        DownloadItem item;
        item.kind = "music";
        item.storeItem = 4711;
        item.storeAccount = 77;
        item.title = title;
        item.fileName = "guess.mp3";
        return item;
    }
    downloads::PreparedItem prepare(const DownloadItem& item) {
        platform::OptionalError error;
        const auto prepared = installer.prepare(item, &error);
        EXPECT_TRUE(prepared) << (error ? error->text() : "");
        return prepared.value_or(downloads::PreparedItem());
    }
    std::string pathOf(std::int64_t track) {
        return "/var/mobile/Media/Purchases/" + std::to_string(track) + ".m4a";
    }
    std::string titleOf(std::int64_t track) {
        return library->connections().reading<std::string>([&](common::Database& database) {
            auto row = database.query("SELECT title FROM item_extra WHERE item_pid = ?", track);
            return row.step() ? std::string(row->text(0)) : std::string();
        });
    }

    const std::string staged = "/var/mobile/Media/Downloads/Incoming/1";
    korvane::ActivityLock activities;
    orlith::PurchaseInstaller installer{openLibrary(), activities, files};

private:
    // Before the member that uses it.
    korvane::Library& openLibrary() {
        open();
        return *library;
    }
    void SetUp() override {}
};

TEST_F(PurchaseInstaller, AnItemIsInTheLibraryBeforeItsFile) {
    const auto prepared = prepare(song());
    EXPECT_TRUE(prepared.isNew);
    EXPECT_EQ(titleOf(prepared.libraryItem), "guess");
    EXPECT_THAT(system.center.posted, SizeIs(1));
    EXPECT_FALSE(prepare(song("Other")).isNew);
    EXPECT_THAT(system.center.posted, SizeIs(1));
}

TEST_F(PurchaseInstaller, WhatIsNoMediaFileIsRefused) {
    DownloadItem item = song();
    item.libraryItem = prepare(item).libraryItem;
    writeFile(staged, "<html>");
    const auto error = installer.install(item, staged);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, EBADMSG);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 0);
}

TEST_F(PurchaseInstaller, AFileIsFiledUnderItsTrack) {
    DownloadItem item = song();
    item.libraryItem = prepare(item).libraryItem;
    item.fileName = "Real Name.m4a";
    writeFile(staged, "ID3\4\5");
    EXPECT_EQ(installer.install(item, staged), std::nullopt);
    EXPECT_FALSE(files.fileExists(staged));
    EXPECT_TRUE(files.fileExists(pathOf(item.libraryItem)));
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 300);
    EXPECT_EQ(titleOf(item.libraryItem), "Real Name");

    platform::OptionalError error;
    EXPECT_FALSE(installer.prepare(item, &error));
    EXPECT_EQ(error->code, EEXIST);
}

TEST_F(PurchaseInstaller, AnOwnersTitleStays) {
    DownloadItem item = song("My Title");
    item.libraryItem = prepare(item).libraryItem;
    item.fileName = "Real Name.m4a";
    writeFile(staged, "ID3\4\5");
    EXPECT_EQ(installer.install(item, staged), std::nullopt);
    EXPECT_EQ(titleOf(item.libraryItem), "My Title");
}

TEST_F(PurchaseInstaller, AnInstallThatWasKilledAfterTheRenameIsFinished) {
    DownloadItem item = song();
    item.libraryItem = prepare(item).libraryItem;
    item.fileName = "a.m4a";
    writeFile(pathOf(item.libraryItem), "12345");
    EXPECT_EQ(installer.install(item, staged), std::nullopt);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 300);
}

TEST_F(PurchaseInstaller, AFileThatIsNowhereIsAskedForAgain) {
    DownloadItem item = song();
    item.libraryItem = prepare(item).libraryItem;
    EXPECT_EQ(installer.install(item, staged)->code, ENOENT);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 0);
}

TEST_F(PurchaseInstaller, AFileWhoseTrackHasLeftTheLibraryIsNotKept) {
    DownloadItem item = song();
    item.libraryItem = prepare(item).libraryItem;
    item.fileName = "a.m4a";
    execute("DELETE FROM item");
    writeFile(staged, "ID3\4\5");
    EXPECT_EQ(installer.install(item, staged)->code, ESRCH);
    EXPECT_FALSE(files.fileExists(pathOf(item.libraryItem)));
    EXPECT_FALSE(files.fileExists(staged));
}

TEST_F(PurchaseInstaller, WhatWasGivenUpLeavesTheLibrary) {
    installer.abandon(prepare(song()).libraryItem);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
    EXPECT_THAT(system.center.posted, SizeIs(2));
}

TEST_F(PurchaseInstaller, OnlyWhatNoStoreCanGiveAgainBelongsInABackup) {
    std::vector<std::string> names;
    int number = 0;
    for (const char* source : {"https://a.example/1.mp3", "file:///home/a/1.mp3", ""}) {
        DownloadItem item = song();
        item.storeItem = ++number;
        item.source = source;
        item.libraryItem = prepare(item).libraryItem;
        writeFile(staged, "ID3\4\5");
        ASSERT_EQ(installer.install(item, staged), std::nullopt);
        names.push_back(std::to_string(item.libraryItem) + ".mp3");
    }
    names.push_back("unknown.mp3");
    platform::OptionalError error;
    using enum downloads::FileClass;
    EXPECT_THAT(installer.settleFiles(names, &error),
                testing::Optional(ElementsAre(Fetchable, Backup, Backup, Unowned)));
}

TEST_F(PurchaseInstaller, ARestoreWhoseSourceIsGoneLeavesTheLibrary) {
    const auto prepared = prepare(song());
    EXPECT_FALSE(installer.sourceIsGone(prepared.libraryItem));
    execute("UPDATE item SET needs_restore = 1");
    EXPECT_TRUE(installer.sourceIsGone(prepared.libraryItem));
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
}

TEST_F(PurchaseInstaller, ATrackThatIsNoLongerThereIsNotMadeAgain) {
    DownloadItem item = song();
    item.libraryItem = 4711;
    platform::OptionalError error;
    EXPECT_FALSE(installer.prepare(item, &error));
    EXPECT_EQ(error->code, ESRCH);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
}

// From the request to the track that plays, over HTTP.
TEST_F(PurchaseInstaller, ADownloadEndsAsATrackOfTheLibrary) {
    const std::string content = "fLaC" + std::string(99'996, 'x');
    test::HttpServer server([&](const test::HttpRequest& request) {
        auto reply = test::serveFile(request, content, "\"1\"");
        reply.fields.push_back("Content-Disposition: attachment; filename=\"A Song.flac\"");
        return reply;
    });
    test::ManualTimeSystem time(directory.path());
    support::RecordingLog downloadLog;
    downloads::DownloadService service({time.fileSystem(), downloadLog, time, installer});
    const auto manager = service.makeManager(nullptr);
    const auto observer = std::make_shared<test::PhaseObserver>();
    manager->addObserver(observer);
    service.start();
    downloads::DownloadRequest request;
    request.url = server.url("/get?song=1");
    request.storeItem = 4711;
    request.storeAccount = 77;
    platform::OptionalError error;
    ASSERT_TRUE(service.request(request, &error)) << error->text();
    const auto isDoneAndTold = [&] {
        return service.list().empty() && observer->phases(4711).size() >= 3;
    };
    for (std::size_t calls = observer->calls(); !isDoneAndTold(); calls = observer->calls())
        ASSERT_TRUE(observer->waitBeyond(calls));
    EXPECT_THAT(observer->phases(4711), ElementsAre("waiting", "downloading", "installing"));
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 300);
    EXPECT_EQ(number("SELECT total_size FROM item_extra"), 100'000);
    EXPECT_EQ(titleOf(number("SELECT item_pid FROM item")), "A Song");
    EXPECT_FALSE(service.request(request, &error));
    EXPECT_EQ(error->code, EEXIST);
}

}  // namespace
