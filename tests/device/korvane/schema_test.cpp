#include "device/korvane/schema.h"

#include <gtest/gtest.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"

namespace {

using common::Database;

class LibrarySchema : public testing::Test {
protected:
    void SetUp() override { korvane::bringSchemaUpToDate(_database); }

    void addTrack(std::int64_t pid) {
        _database.execute("INSERT INTO item (item_pid) VALUES (?)", pid);
        const auto id = _database.lastInsertedRow();
        for (const char* table : {"item_extra", "item_store", "item_stats", "item_artwork"})
            _database.execute(
                std::string("INSERT INTO ") + table + " (item_id, item_pid) VALUES (?, ?)", id,
                pid);
        _database.execute("UPDATE item_extra SET global_id = ? WHERE item_pid = ?", pid + 1000,
                          pid);
        endTransaction();
    }
    std::int64_t addContainer(std::int64_t pid) {
        _database.execute("INSERT INTO container (container_pid) VALUES (?)", pid);
        const auto id = _database.lastInsertedRow();
        endTransaction();
        return id;
    }
    // As the library's connection does with each commit.
    void endTransaction() {
        _database.execute("UPDATE change_state SET base_revision = ?", counter());
    }
    std::int64_t counter() {
        return _database.int64("SELECT seq FROM sqlite_sequence WHERE name = 'entity_revision'");
    }
    std::int64_t revisionOf(int kind, std::int64_t pid) {
        return _database.int64(
            "SELECT revision FROM entity_revision WHERE entity_kind = ? AND pid = ?", kind, pid);
    }

    Database _database{":memory:", {}};
};

TEST_F(LibrarySchema, IsMadeOnceAndLeftAloneAfterwards) {
    addTrack(1);
    korvane::bringSchemaUpToDate(_database);
    EXPECT_EQ(_database.int64("SELECT count(*) FROM item"), 1);
}

TEST_F(LibrarySchema, ADatabaseOfANewerVersionIsRefused) {
    _database.executeScript("PRAGMA user_version = 1000");
    EXPECT_THROW(korvane::bringSchemaUpToDate(_database), common::SqliteError);
}

TEST_F(LibrarySchema, ADatabaseOfAnOlderVersionIsBroughtUpToDate) {
    Database old(":memory:", {});
    old.executeScript(korvane::firstSchemaTables());
    old.executeScript(korvane::firstSchemaTriggers());
    old.executeScript("PRAGMA user_version = 1");
    old.execute("INSERT INTO item (item_pid) VALUES (5)");
    korvane::bringSchemaUpToDate(old);
    EXPECT_EQ(old.int64("PRAGMA user_version"), static_cast<int>(korvane::SchemaVersion::Newest));
    EXPECT_EQ(old.int64("SELECT item_pid FROM item"), 5);
    EXPECT_EQ(old.int64("SELECT count(*) FROM purchase"), 0);
    EXPECT_EQ(old.int64("SELECT count(*) FROM entity_revision WHERE record IS NULL"), 1);
}

TEST_F(LibrarySchema, ListsTheBaseLocationsOfTheMediaDirectory) {
    const auto idOf = [&](const char* path) {
        return _database.int64("SELECT base_location_id from base_location where path = ?", path);
    };
    EXPECT_EQ(idOf("Tessel_Control/Music/F00"), 200);
    EXPECT_EQ(idOf("Tessel_Control/Music/F49"), 249);
    EXPECT_EQ(idOf("Tessel_Control/Music/F-1"), 251);
    EXPECT_EQ(idOf("Tessel_Control/Music/F-49"), 299);
    EXPECT_EQ(idOf("Purchases"), 300);
    EXPECT_EQ(idOf("Podcasts"), 310);
    EXPECT_EQ(idOf("CloudAssets"), 400);
}

TEST_F(LibrarySchema, TheStatementsOfBundlesFindTheirTablesAndColumns) {
    for (const char* sql :
         {"SELECT base_location_id from base_location where path = 'CloudAssets'",
          "UPDATE album SET representative_item_artwork_token = IFNULL( (SELECT "
          "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), '')",
          "UPDATE album_artist SET representative_item_artwork_token = IFNULL( (SELECT "
          "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), '')",
          "UPDATE item_artist SET artist_artwork_token = ''",
          "UPDATE album_artist SET artist_artwork_token = ''",
          "SELECT DISTINCT account_id FROM item_store",
          "INSERT OR REPLACE INTO kenning_metadata (kenning_id, checksum, data) VALUES (?, ?, ?);",
          "UPDATE item_extra SET pending_kenning_checksum = ? WHERE kenning_id = ?;",
          "INSERT OR REPLACE INTO kenning_similarities (kenning_id, data) VALUES (?, ?);",
          "INSERT OR REPLACE INTO kenning_config (id, data, default_num_results, "
          "min_num_results, version) VALUES (0,?,?,?,?)",
          "SELECT DISTINCT(cloud_artwork_token), sync_id, media_type, title FROM item_artwork LEFT "
          "OUTER JOIN artwork ON cloud_artwork_token=artwork_token JOIN item_store USING "
          "(item_pid) JOIN item USING (item_pid) JOIN item_extra USING (item_pid) WHERE "
          "artwork_token IS NULL AND cloud_artwork_token != '' AND "
          "cloud_artwork_token=best_artwork_token GROUP BY cloud_artwork_token"})
        EXPECT_NO_THROW(_database.prepare(sql)) << sql;
}

TEST_F(LibrarySchema, WhateverStatementChangesATrackGivesItANewRevision) {
    addTrack(1);
    addTrack(2);
    for (const char* sql :
         {"UPDATE item SET disc_number = disc_number + 1 WHERE item_pid = 1",
          "UPDATE item_extra SET title = ifnull(title, '') || 'x' WHERE item_pid = 1",
          "UPDATE item_store SET flavor = ifnull(flavor, '') || 'x' WHERE item_pid = 1",
          "UPDATE item_stats SET user_rating = user_rating + 20 WHERE item_pid = 1",
          "UPDATE item_artwork SET sync_artwork_token = sync_artwork_token || 'x' WHERE item_pid "
          "= 1",
          "INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (1, 'here', 1)",
          "UPDATE play_statistics SET play_count = 2 WHERE item_pid = 1"}) {
        const auto before = counter();
        _database.execute(sql);
        EXPECT_GT(revisionOf(0, 1), before) << sql;
        endTransaction();
    }
    EXPECT_LT(revisionOf(0, 2), revisionOf(0, 1));
}

TEST_F(LibrarySchema, WhatDoesNotTravelGivesNoRevision) {
    addTrack(1);
    const auto before = counter();
    for (const char* sql :
         {"UPDATE item SET base_location_id = 200, needs_restore = 1, album_order = 5",
          "UPDATE item_extra SET location_file_name = 'a', download_identifier = 'b', "
          "pending_kenning_checksum = 3",
          "UPDATE item_store SET sync_id = 9", "UPDATE item_artwork SET cloud_artwork_token = 'c'",
          "UPDATE item SET disc_number = 0", "UPDATE item_extra SET title = NULL"})
        _database.execute(sql);
    EXPECT_EQ(counter(), before);
}

TEST_F(LibrarySchema, SeveralChangesOfOneTransactionGiveOneRevision) {
    addTrack(1);
    const auto before = counter();
    _database.execute("UPDATE item SET disc_number = 2");
    _database.execute("UPDATE item_extra SET title = 'a'");
    _database.execute("UPDATE item_stats SET user_rating = 40");
    EXPECT_EQ(counter(), before + 1);
    endTransaction();
    _database.execute("UPDATE item SET disc_number = 3");
    EXPECT_EQ(counter(), before + 2);
}

TEST_F(LibrarySchema, AChangeByAnotherOriginIsAChangeOfItsOwn) {
    addTrack(1);
    _database.execute("UPDATE item SET disc_number = 2");
    const auto owners = revisionOf(0, 1);
    _database.execute("UPDATE change_state SET origin = 'peer'");
    _database.execute("UPDATE item SET disc_number = 3");
    EXPECT_GT(revisionOf(0, 1), owners);
    EXPECT_EQ(_database.int64("SELECT count(*) FROM entity_revision WHERE origin = 'peer'"), 1);
}

TEST_F(LibrarySchema, PlayCountsAreSummedOverTheirOrigins) {
    addTrack(1);
    _database.execute(
        "INSERT INTO play_statistics (item_pid, origin_uid, play_count, last_played_ms) VALUES (1, "
        "'a', 3, 100), (1, 'b', 4, 50)");
    EXPECT_EQ(_database.int64("SELECT play_count FROM item_stats"), 7);
    EXPECT_EQ(_database.int64("SELECT last_played_ms FROM item_stats"), 100);
    _database.execute("DELETE FROM play_statistics WHERE origin_uid = 'a'");
    EXPECT_EQ(_database.int64("SELECT play_count FROM item_stats"), 4);
}

TEST_F(LibrarySchema, ADeletionIsToldOnlyWhenItIsMeantToBe) {
    addTrack(1);
    addTrack(2);
    _database.execute("UPDATE item_store SET sync_id = item_pid * 10");
    _database.execute("DELETE FROM item WHERE item_pid = 1");
    EXPECT_EQ(revisionOf(0, 1), 0);
    const auto before = counter();
    _database.execute("UPDATE change_state SET exports_deletions = 1");
    _database.execute("DELETE FROM item WHERE item_pid = 2");
    auto row = _database.query(
        "SELECT revision, deleted, sync_id, global_id FROM entity_revision WHERE pid = 2");
    ASSERT_TRUE(row.step());
    EXPECT_GT(row->int64(0), before);
    EXPECT_EQ(row->int64(1), 1);
    EXPECT_EQ(row->int64(2), 20);
    EXPECT_EQ(row->int64(3), 1002);
    for (const char* table : {"item_extra", "item_store", "item_stats", "item_artwork"})
        EXPECT_EQ(_database.int64(std::string("SELECT count(*) FROM ") + table), 0) << table;
    EXPECT_EQ(_database.int64("SELECT count(*) FROM tombstone"), 2);
}

TEST_F(LibrarySchema, ADeletedTrackKeepsItsPlaceInAPlaylistUnresolved) {
    addTrack(1);
    const auto container = addContainer(50);
    _database.execute(
        "INSERT INTO container_item (container_id, position, item_pid) VALUES (?, 3, 1)",
        container);
    endTransaction();
    const auto before = revisionOf(1, 50);
    _database.execute("DELETE FROM item");
    auto row = _database.query(
        "SELECT position, item_pid, foreign_pid, foreign_global_id FROM container_item");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row->int64(0), 3);
    EXPECT_EQ(row->int64(1), 0);
    EXPECT_EQ(row->int64(2), 1);
    EXPECT_EQ(row->int64(3), 1001);
    EXPECT_EQ(revisionOf(1, 50), before);
}

TEST_F(LibrarySchema, ManyNewItemsGiveTheirPlaylistOneRevision) {
    const auto container = addContainer(50);
    const auto before = counter();
    for (int i = 0; i < 20; ++i)
        _database.execute(
            "INSERT INTO container_item (container_id, position, foreign_global_id) VALUES (?, ?, "
            "7)",
            container, i);
    EXPECT_EQ(counter(), before + 1);
    EXPECT_EQ(revisionOf(1, 50), before + 1);
}

TEST_F(LibrarySchema, FillingASmartPlaylistGivesNoRevision) {
    const auto container = addContainer(50);
    _database.execute("UPDATE container SET kind = 1");
    endTransaction();
    const auto before = counter();
    _database.execute(
        "INSERT INTO container_item (container_id, position, item_pid) VALUES (?, 0, 1)",
        container);
    _database.execute("DELETE FROM container_item");
    EXPECT_EQ(counter(), before);
}

TEST_F(LibrarySchema, RowsAreCounted) {
    addTrack(1);
    addTrack(2);
    addContainer(50);
    _database.execute("DELETE FROM item WHERE item_pid = 1");
    EXPECT_EQ(_database.int64("SELECT items FROM row_count"), 1);
    EXPECT_EQ(_database.int64("SELECT containers FROM row_count"), 1);
}

TEST_F(LibrarySchema, TheBestArtworkTokenFollowsTheSourcesInTheirOrder) {
    addTrack(1);
    const auto best = [&] {
        auto row = _database.query("SELECT best_artwork_token FROM item_artwork");
        row.step();
        return std::string(row->text(0));
    };
    EXPECT_EQ(best(), "");
    _database.execute("UPDATE item_artwork SET cloud_artwork_token = 'cloud'");
    EXPECT_EQ(best(), "cloud");
    _database.execute("UPDATE item_artwork SET sync_artwork_token = 'sync'");
    EXPECT_EQ(best(), "sync");
}

}  // namespace
