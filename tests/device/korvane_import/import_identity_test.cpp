// Which of the library's own entries a record means, and what comes back.
#include <gmock/gmock.h>

#include "device/korvane/import/host_data_import.h"
#include "device/korvane/import/import_cancellation.h"
#include "device/korvane/track_deletion.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

class ImportIdentity : public ImportTest {
protected:
    void deleteAsOwner(std::int64_t pid) {
        ASSERT_TRUE(library->connections().write([&](common::Database& database) {
            return korvane::deleteTrack(database, pid, korvane::DeletionReach::everywhere(1));
        }));
    }
};

TEST_F(ImportIdentity, ATrackOfTheOwnersGetsTheSyncIDThatTheHostGivesIt) {
    add({.pid = 4000, .title = "Bought", .globalID = 9});
    HostData data;
    qorx::Track& track = data.add(1, "Bought");
    track.set_own_id(4000);
    track.set_global_id(9);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(pidOf(1), 4000);
    EXPECT_EQ(number("SELECT sources FROM item"), HostBit | 1);
}

TEST_F(ImportIdentity, TheGlobalIDFindsATrackThatCameAnotherWay) {
    add({.pid = 4000, .syncID = 55, .title = "Mirrored", .globalID = 9, .sources = 4});
    HostData data;
    data.add(1, "The same").set_global_id(9);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(pidOf(1), 4000);
    EXPECT_EQ(number("SELECT sources FROM item"), HostBit | 4);
}

TEST_F(ImportIdentity, TheTableOfThePeersIDsComesBeforeTheGlobalID) {
    add({.pid = 4000, .title = "By table", .globalID = 1});
    add({.pid = 5000, .title = "By global id", .globalID = 9});
    execute("INSERT INTO peer (peer_id, peer_uid) VALUES (3, 'host-1')");
    execute(
        "INSERT INTO peer_identity (peer_id, entity_kind, peer_pid, pid) VALUES (3, 0, 77, 4000)");
    HostData data;
    qorx::Track& track = data.add(1, "Which");
    track.set_persistent_id(77);
    track.set_global_id(9);
    imports(data);
    EXPECT_EQ(pidOf(1), 4000);
}

TEST_F(ImportIdentity, TwoRecordsOfOneGlobalIDAreTwoTracks) {
    HostData data;
    data.add(1, "One").set_global_id(9);
    data.add(2, "Two").set_global_id(9);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
    EXPECT_NE(pidOf(1), pidOf(2));
}

TEST_F(ImportIdentity, TwoRecordsOfOneSyncIDAreOneTrack) {
    HostData data;
    data.add(1, "First");
    data.add(1, "Last");
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Last");
}

TEST_F(ImportIdentity, AnyNumberMayBeASyncID) {
    HostData data;
    for (const std::int64_t id : {INT64_MIN, INT64_MAX, std::int64_t{-1}, std::int64_t{1}}) {
        data.tracks.emplace_back().set_sync_id(id);
    }
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item WHERE item_pid > 0"), 4);
    EXPECT_NE(pidOf(INT64_MIN), 0);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 4);
}

TEST_F(ImportIdentity, ANewPersistentIDIsNoIDInUse) {
    add({.pid = 1000, .syncID = 2000});
    execute("INSERT INTO container (container_pid, sync_id) VALUES (3000, 3500)");
    deleteAsOwner(1000);
    add({.pid = 1500, .syncID = 2000});
    HostData data;
    data.add(7, "Seven");
    data.add(8, "Eight");
    writeFile(HostDataPath, data.bytes());
    korvane::HostDataImportOptions options;
    // In use, gone, reserved by this import, zero, negative after the sign bit, and then free.
    std::vector<std::uint64_t> numbers{0, 7, 8, 1000, 1500, 2000, 3000, 3500, 4242, 4242, 5151};
    options.randomNumber = [&, at = std::size_t{0}]() mutable {
        return at < numbers.size() ? numbers[at++] : 6000 + at++;
    };
    korvane::ImportCancellation cancellation;
    const auto error = korvane::importHostData(library->connections(), korvane::recordsOf([&] {
                                                   return files.openInputStream(HostDataPath);
                                               }),
                                               options, cancellation);
    ASSERT_FALSE(error) << error->description();
    EXPECT_EQ(pidOf(7), 4242);
    EXPECT_EQ(pidOf(8), 5151);
}

TEST_F(ImportIdentity, ATrackThatReturnsGetsBackWhatItHad) {
    HostData data;
    data.add(1, "One");
    data.add(2, "Two");
    data.addPlaylist(501, "List", {1, 2, 1});
    imports(data);
    const std::int64_t pid = pidOf(1);
    execute(
        "UPDATE item_stats SET user_rating = 60, rating_changed_ms = 5, bookmark_ms = 9,"
        " bookmark_changed_ms = 6 WHERE item_pid = " +
        std::to_string(pid));
    execute("INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (" +
            std::to_string(pid) + ", 'device', 4)");
    HostData removal;
    removal.remove(1);
    imports(removal);
    EXPECT_EQ(pidOf(1), 0);
    EXPECT_EQ(number("SELECT count(*) FROM container_item WHERE item_pid = 0"), 2);
    HostData again;
    again.add(33, "One again").set_global_id(100'001);
    imports(again);
    EXPECT_EQ(pidOf(33), pid);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats WHERE bookmark_ms = 9"), 60);
    EXPECT_EQ(number("SELECT play_count FROM item_stats WHERE user_rating = 60"), 4);
    EXPECT_EQ(number("SELECT count(*) FROM container_item WHERE item_pid = " + std::to_string(pid)),
              2);
    EXPECT_EQ(number("SELECT count(*) FROM removed_memory"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted = 1"), 0);
}

TEST_F(ImportIdentity, WhatTheOwnerDeletedAndNoHostKnowsOfStaysDeleted) {
    HostData data;
    data.add(1, "One");
    data.add(2, "Two");
    imports(data);
    save(0);
    deleteAsOwner(pidOf(1));
    imports(data);
    EXPECT_EQ(pidOf(1), 0);
    // Once the host has been told, it sends the track again because it means to.
    save(1);
    imports(data);
    EXPECT_NE(pidOf(1), 0);
}

TEST_F(ImportIdentity, DeletionRecordsDoNotReachWhatTheSameDataName) {
    HostData data;
    data.add(1, "One");
    imports(data);
    HostData moved;
    moved.add(2, "One").set_global_id(100'001);  // the same track under another sync id
    moved.remove(1);
    moved.deletions[0].set_global_id(100'001);
    imports(moved);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_NE(pidOf(2), 0);
}

}  // namespace
