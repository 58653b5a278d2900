#include <gmock/gmock.h>

#include <thread>

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/background_tasks.h"
#include "device/korvane/change_log.h"
#include "device/korvane/orphan_sweep.h"
#include "device/korvane/track.h"
#include "device/korvane/track_deletion.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;

const std::string MusicFile = "/var/mobile/Media/Tessel_Control/Music/F00/known.mp3";
const std::string OrphanFile = "/var/mobile/Media/Tessel_Control/Music/F00/orphan.mp3";

class ManualNotifications final : public NotificationSource {
public:
    std::shared_ptr<void> observe(std::string_view name, std::function<void()> handler) override {
        _handlers.emplace(name, std::move(handler));
        return std::make_shared<int>(0);
    }
    void post(std::string_view name) { _handlers.at(std::string(name))(); }

private:
    std::map<std::string, std::function<void()>> _handlers;
};

class LibraryBackground : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        add({.pid = 1, .syncID = 50});
        writeFile(MusicFile, "known");
        writeFile(OrphanFile, "orphan");
        Track(1, library).populateLocationPropertiesWithPath(MusicFile);
        library->setValueForDatabaseProperty("7", "KVSyncClientSyncAnchor");
    }
    bool sweep() {
        return OrphanSweep(*library, lock).run([] { return true; });
    }
    ActivityLock lock;
    ManualNotifications notifications;
};

TEST_F(LibraryBackground, ASweepRemovesOnlyWhatNobodyRefersTo) {
    const std::string others[] = {"/var/mobile/Media/Purchases/bought.mp3",
                                  "/var/mobile/Media/Stagehold/Media/Artwork/5",
                                  "/var/mobile/Media/Tessel_Control/Sync/Media/Sync_1.plist"};
    for (const auto& path : others)
        writeFile(path, "x");
    EXPECT_TRUE(sweep());
    EXPECT_TRUE(files.fileExists(MusicFile));
    EXPECT_FALSE(files.fileExists(OrphanFile));
    for (const auto& path : others)
        EXPECT_TRUE(files.fileExists(path)) << path;
}

TEST_F(LibraryBackground, ASweepKeepsOnlyThePodcastsOfTracks) {
    const std::string known = "/var/mobile/Media/Podcasts/show/known.mp3";
    const std::string orphan = "/var/mobile/Media/Podcasts/orphan.mp3";
    const std::string sameName = "/var/mobile/Media/Podcasts/known.mp3";
    add({.pid = 2, .syncID = 51});
    for (const auto& path : {known, orphan, sameName})
        writeFile(path, "x");
    Track(2, library).populateLocationPropertiesWithPath(known);
    EXPECT_TRUE(sweep());
    EXPECT_TRUE(files.fileExists(known));
    EXPECT_FALSE(files.fileExists(orphan));
    EXPECT_FALSE(files.fileExists(sameName));
}

TEST_F(LibraryBackground, ASweepKeepsThePicturesOfCoversAndChapters) {
    Track track(1, library);
    track.setValue("cover", KV3TrackPropertySyncArtworkToken);
    track.setValue(*common::encodeChapters({{1'500, "", "cache"}}), KV3TrackPropertyChapterData);
    const std::string tokens[] = {"cover", chapterArtworkToken(1, 1.5), "cache", "orphan"};
    for (const auto& token : tokens) {
        writeFile("/var/mobile/Media/received", "picture");
        library->importOriginalArtworkFromFileURL("/var/mobile/Media/received", token, 1, 2, 8);
    }
    EXPECT_TRUE(sweep());
    const auto isThere = [&](const std::string& token) {
        return library->artwork().hasOriginal(artworkRelativePath(token));
    };
    for (const auto& token : {tokens[0], tokens[1], tokens[2]})
        EXPECT_TRUE(isThere(token)) << token;
    EXPECT_FALSE(isThere("orphan"));
    EXPECT_EQ(number("SELECT count(*) FROM artwork"), 3);
}

TEST_F(LibraryBackground, ALibraryThatWasNeverSyncedIsNotSwept) {
    library->deleteDatabaseProperty("KVSyncClientSyncAnchor");
    EXPECT_TRUE(sweep());
    EXPECT_TRUE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, ALibraryThatWasEmptiedIsSwept) {
    EXPECT_TRUE(sweep());
    EXPECT_TRUE(files.fileExists(MusicFile));
    EXPECT_TRUE(Track(1, library).deleteFromLibrary());
    library->deleteDatabaseProperty("KVSyncClientSyncAnchor");
    EXPECT_TRUE(sweep());
    EXPECT_FALSE(files.fileExists(MusicFile));
}

TEST_F(LibraryBackground, ALibraryThatHasNoTrackYetIsNotSwept) {
    EXPECT_TRUE(Track(1, library).deleteFromLibrary());
    EXPECT_TRUE(sweep());
    EXPECT_TRUE(files.fileExists(MusicFile));
    EXPECT_TRUE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, ASessionHoldsTheSweep) {
    auto session = lock.holdForFiles();
    EXPECT_FALSE(sweep());
    EXPECT_TRUE(files.fileExists(OrphanFile));
    auto install = lock.holdForFiles();
    session.release();
    EXPECT_FALSE(lock.tryHoldForSweep());
    install.release();
    EXPECT_TRUE(sweep());
    EXPECT_FALSE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, ASessionWaitsForTheSweepsFolder) {
    auto sweeping = lock.tryHoldForSweep();
    ASSERT_TRUE(sweeping);
    std::atomic<bool> swept = false;
    std::thread session([&] {
        const auto hold = lock.holdForFiles();
        EXPECT_TRUE(swept);
    });
    EXPECT_FALSE(lock.tryHoldForSweep());
    swept = true;
    sweeping.release();
    session.join();
}

TEST_F(LibraryBackground, TasksHoldWhileTheyAreSuppressed) {
    BackgroundTasks tasks(*library, lock, notifications, system.queue);
    notifications.post("com.vantor.korvane.backgroundtasks.suppresschanges");
    notifications.post("com.vantor.korvane.backgroundtasks.suppresschanges");
    EXPECT_TRUE(tasks.isSuppressed());
    tasks.schedule();
    system.queue->runAll();
    EXPECT_TRUE(files.fileExists(OrphanFile));
    notifications.post("com.vantor.korvane.backgroundtasks.stopsuppressingchanges");
    EXPECT_FALSE(tasks.isSuppressed());
    system.queue->runAll();
    EXPECT_FALSE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, RecommendationDataOfADeletedTrackGo) {
    add({.pid = 2, .syncID = 51});
    add({.pid = 3, .syncID = 52});
    execute("UPDATE item_extra SET kenning_id = min(item_pid, 2), global_id = min(item_pid, 2)");
    execute("INSERT INTO kenning_metadata (kenning_id) VALUES (1), (2)");
    execute("INSERT INTO kenning_similarities (kenning_id) VALUES (1), (2)");
    const auto remove = [&](std::int64_t pid) {
        library->change("delete", [&](common::Database& database) {
            return deleteTrack(database, pid, DeletionReach::here());
        });
    };
    BackgroundTasks tasks(*library, lock, notifications, system.queue);
    const auto remaining = [&](const std::string& table) {
        tasks.schedule();
        system.queue->runAll();
        return number("SELECT ifnull(sum(kenning_id), 0) FROM " + table);
    };
    remove(2);
    EXPECT_EQ(remaining("kenning_metadata"), 1 + 2) << "another track has them too";
    remove(3);
    EXPECT_EQ(remaining("kenning_metadata"), 1);
    EXPECT_EQ(remaining("kenning_similarities"), 1);
}

TEST_F(LibraryBackground, TasksThatWereQueuedBeforeASuppressionHoldToo) {
    BackgroundTasks tasks(*library, lock, notifications, system.queue);
    tasks.schedule();
    tasks.schedule();
    EXPECT_EQ(system.queue->waiting(), 1u);
    notifications.post("com.vantor.korvane.backgroundtasks.suppresschanges");
    system.queue->runAll();
    EXPECT_TRUE(files.fileExists(OrphanFile));
    notifications.post("com.vantor.korvane.backgroundtasks.stopsuppressingchanges");
    system.queue->runAll();
    EXPECT_FALSE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, ASweepThatASessionHeldUpIsMadeAtTheNextOccasion) {
    BackgroundTasks tasks(*library, lock, notifications, system.queue);
    auto session = lock.holdForFiles();
    tasks.schedule();
    system.queue->runAll();
    EXPECT_TRUE(files.fileExists(OrphanFile));
    session.release();
    notifications.post("com.vantor.korvane.backgroundtasks.stopsuppressingchanges");
    system.queue->runAll();
    EXPECT_FALSE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, JobsThatOutliveTheTasksDoNothing) {
    {
        BackgroundTasks tasks(*library, lock, notifications, system.queue);
        tasks.schedule();
    }
    system.queue->runAll();
    EXPECT_TRUE(files.fileExists(OrphanFile));
}

TEST_F(LibraryBackground, DeletionsAreForgottenWhenEveryPeerHasThem) {
    add({.pid = 2});
    add({.pid = 3});
    const auto prune = [&] {
        library->connections().write([](common::Database& database) {
            pruneChangeLog(database);
            return true;
        });
        return number("SELECT count(*) FROM entity_revision WHERE deleted <> 0");
    };
    Track(2, library).deleteFromLibrary();
    const auto first = library->currentRevision();
    Track(3, library).deleteFromLibrary();
    EXPECT_EQ(prune(), 2);
    execute("INSERT INTO peer (peer_uid, acknowledged_revision) VALUES ('a', 1000), ('b', " +
            std::to_string(first) + ")");
    EXPECT_EQ(prune(), 1);
    library->setValueForDatabaseProperty(first, "KVSyncClientLastSyncedRevision");
    execute("UPDATE peer SET acknowledged_revision = 1000");
    EXPECT_EQ(prune(), 1);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE pid = 1"), 1);
}

}  // namespace
