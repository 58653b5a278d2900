#include "device/orlith/backup/purchase_fetcher.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <condition_variable>

#include "common/sqlite/database.h"
#include "device/orlith/purchase_installer.h"
#include "tests/device/downloads/download_fixture.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

class PurchaseFetcher : public test::LibraryTest {
protected:
    void SetUp() override {
        open();
        installer.emplace(*library, activities, files);
        settings.progressInterval = 0;
        settings.queueInterval = 0;
        settings.retry.firstDelay = 0;
        writeFile("/store/song.mp3", "ID3 song");
        start();
    }
    void TearDown() override { stop(); }

    void start() {
        service.emplace(downloads::DownloadEngine::Configuration{time.fileSystem(), downloadLog,
                                                                 time, *installer, settings});
        fetcher = std::make_shared<orlith::PurchaseFetcher>(*library, *service,
                                                            time.makeSerialQueue("fetch"));
        manager = service->makeManager(nullptr);
        manager->addObserver(fetcher);
        manager->addObserver(observer);
        service->start();
    }
    void stop() {
        fetcher->stop();
        fetcher.reset();
        service.reset();
        manager.reset();
    }
    void addLost(std::int64_t pid, const std::string& source) {
        add({.pid = pid});
        library->connections().write([&](common::Database& database) {
            database.execute("UPDATE item SET needs_restore = 1 WHERE item_pid = ?", pid);
            database.execute(
                "UPDATE item_store SET store_item_id = ?1, account_id = 1 WHERE item_pid = ?1",
                pid);
            database.execute("INSERT INTO purchase (item_pid, source, kind) VALUES (?, ?, 'music')",
                             pid, source);
            return true;
        });
    }
    std::string song() { return "file://" + files.realPath("/store/song.mp3"); }
    // Looks whenever something is told.
    bool waitFor(const std::function<bool()>& condition) {
        for (;;) {
            const std::size_t calls = observer->calls();
            if (condition())
                return true;
            if (!observer->waitBeyond(calls))
                return condition();
        }
    }
    std::int64_t waiting() { return number("SELECT count(*) FROM item WHERE needs_restore <> 0"); }

    test::ManualTimeSystem time{directory.path()};
    support::RecordingLog downloadLog;
    korvane::ActivityLock activities;
    std::optional<orlith::PurchaseInstaller> installer;
    downloads::EngineSettings settings;
    std::optional<downloads::DownloadService> service;
    std::shared_ptr<orlith::PurchaseFetcher> fetcher;
    std::shared_ptr<VDDownloadManager> manager;
    const std::shared_ptr<test::PhaseObserver> observer = std::make_shared<test::PhaseObserver>();
};

TEST_F(PurchaseFetcher, FetchesAllThereAreAndNeverListsMany) {
    for (std::int64_t pid = 1; pid <= 130; ++pid)
        // Each from an address of its own.
        addLost(pid, song() + "?" + std::to_string(pid));
    fetcher->start();
    std::size_t most = 0;
    EXPECT_TRUE(waitFor([&] {
        most = std::max(most, service->list().size());
        return waiting() == 0 && service->list().empty();
    }));
    EXPECT_LE(most, 100u);
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE base_location_id = 300"), 130);
}

TEST_F(PurchaseFetcher, WhatIsGoneForGoodLeavesAndTheOthersCome) {
    addLost(1, "file:///nowhere/at/all.mp3");
    addLost(2, song());
    fetcher->start();
    EXPECT_TRUE(waitFor([&] { return waiting() == 0 && service->list().empty(); }));
    EXPECT_EQ(number("SELECT item_pid FROM item"), 2);
}

TEST_F(PurchaseFetcher, WhatFailedForTheMomentIsAskedForAtTheNextStart) {
    settings.retry.attempts = 1;
    stop();
    start();
    std::string status = "503 Later";
    test::HttpServer server([&](const test::HttpRequest& request) {
        return status.empty() ? test::serveFile(request, "ID3 song", "\"1\"")
                              : test::HttpReply{status};
    });
    addLost(1, server.url("/a.mp3"));
    fetcher->start();
    ASSERT_TRUE(
        waitFor([&] { return !service->list().empty() && service->list()[0].phase == "failed"; }));
    EXPECT_EQ(waiting(), 1);
    stop();
    status.clear();
    start();
    fetcher->start();
    EXPECT_TRUE(waitFor([&] { return waiting() == 0; }));
}

TEST_F(PurchaseFetcher, AfterItsEndItAsksForNothing) {
    addLost(1, song());
    fetcher->stop();
    fetcher->start();
    // On the same queue, so behind it.
    fetcher->downloadManagerDownloadsDidChange(*manager);
    EXPECT_TRUE(service->list().empty());
}

}  // namespace
