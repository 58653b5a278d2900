#include "device/korvane/track_deletion.h"

#include <fmt/format.h>

#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/predicate_sql.h"
#include "device/korvane/schema.h"
#include "device/korvane/track_location.h"
#include "device/korvane/track_properties.h"

namespace korvane {

namespace {

// Each followed by a condition on the tracks' rows.
constexpr char KeepMemory[] =
    "INSERT OR REPLACE INTO removed_memory (global_id, item_pid, user_rating, "
    "rating_changed_ms, bookmark_ms, bookmark_changed_ms, date_added) SELECT e.global_id, "
    "i.item_pid, st.user_rating, st.rating_changed_ms, st.bookmark_ms, st.bookmark_changed_ms, "
    "i.date_added FROM item i JOIN item_extra e ON e.item_id = i.item_id JOIN item_stats st ON "
    "st.item_id = i.item_id WHERE e.global_id <> 0 AND ";
constexpr char KeepPlays[] =
    "INSERT OR REPLACE INTO removed_play_statistics (global_id, origin_uid, play_count, "
    "skip_count, last_played_ms, last_skipped_ms) SELECT e.global_id, p.origin_uid, "
    "p.play_count, p.skip_count, p.last_played_ms, p.last_skipped_ms FROM play_statistics p "
    "JOIN item_extra e ON e.item_pid = p.item_pid WHERE e.global_id <> 0 AND ";

void keepMemory(common::Database& database, std::int64_t trackPID) {
    static const std::string memory = std::string(KeepMemory) + "i.item_pid = ?";
    static const std::string plays = std::string(KeepPlays) + "p.item_pid = ?";
    database.execute(memory, trackPID);
    database.execute(plays, trackPID);
}

void run(common::Database& database, const std::string& sql,
         const std::vector<platform::Value>& values) {
    auto statement = database.prepare(sql);
    int index = 0;
    for (const platform::Value& value : values)
        statement->bind(++index, value);
    statement.run();
}

// Deletions made while this lives are told to others; the triggers read the mark.
class ToldDeletion {
public:
    ToldDeletion(common::Database& database, DeletionReach reach)
        : _database(database), _isTold(reach.isTold()) {
        if (_isTold)
            database.execute("UPDATE change_state SET exports_deletions = 1, deletion_ms = ?",
                             reach.deletedMs());
    }
    // Not in a destructor: an error must roll the transaction back.
    void end() {
        if (_isTold)
            _database.execute("UPDATE change_state SET exports_deletions = 0");
    }

private:
    common::Database& _database;
    const bool _isTold;
};

std::vector<std::int64_t> pids(common::Query rows) {
    std::vector<std::int64_t> found;
    while (rows.step())
        found.push_back(rows->int64(0));
    return found;
}

bool hasClaim(common::Database& database, std::int64_t trackPID) {
    return database.int64(
               "SELECT EXISTS (SELECT 1 FROM item i JOIN item_store s ON s.item_id = i.item_id "
               "WHERE i.item_pid = ? AND (i.sources <> 0 OR i.needs_restore <> 0 OR "
               "i.base_location_id >= ? OR ifnull(s.veska_id, 0) <> 0))",
               trackPID, FirstStoreLocation) != 0;
}

}  // namespace

bool deleteTrack(common::Database& database, std::int64_t trackPID, DeletionReach reach) {
    keepMemory(database, trackPID);
    ToldDeletion told(database, reach);
    const bool existed = database.execute("DELETE FROM item WHERE item_pid = ?", trackPID) != 0;
    told.end();
    return existed;
}

void deleteTracksHere(common::Database& database, const SqlCondition& condition) {
    const std::string items = "(SELECT i.item_id FROM " +
                              trackTables(condition.joins, !condition.isLookup) + " WHERE " +
                              condition.text + ")";
    run(database, KeepMemory + ("i.item_id IN " + items), condition.values);
    run(database, KeepPlays + ("e.item_id IN " + items), condition.values);
    run(database, "DELETE FROM item WHERE item_id IN " + items, condition.values);
}

void forgetKenningOfDeletedTracks(common::Database& database) {
    for (const char* table : {"kenning_metadata", "kenning_similarities"})
        database.execute(
            fmt::format("DELETE FROM {0} WHERE kenning_id IN (SELECT global_id FROM "
                        "removed_memory) AND NOT EXISTS (SELECT 1 FROM item_extra e WHERE "
                        "e.kenning_id = {0}.kenning_id)",
                        table));
}

bool deletePlaylist(common::Database& database, std::int64_t playlistPID, DeletionReach reach) {
    ToldDeletion told(database, reach);
    const bool existed =
        database.execute("DELETE FROM container WHERE container_pid = ?", playlistPID) != 0;
    told.end();
    return existed;
}

void removeTrackSources(common::Database& database, std::int64_t mask,
                        std::span<const std::int64_t> trackPIDs) {
    for (const std::int64_t pid : trackPIDs) {
        database.execute("UPDATE item SET sources = sources & ~?2 WHERE item_pid = ?1", pid, mask);
        if (!hasClaim(database, pid))
            deleteTrack(database, pid, DeletionReach::here());
    }
}

void removePlaylistSources(common::Database& database, std::int64_t mask,
                           std::span<const std::int64_t> playlistPIDs) {
    for (const std::int64_t pid : playlistPIDs) {
        database.execute("UPDATE container SET sources = sources & ~?2 WHERE container_pid = ?1",
                         pid, mask);
        if (database.int64("SELECT sources FROM container WHERE container_pid = ?", pid) == 0)
            deletePlaylist(database, pid, DeletionReach::here());
    }
}

void removeSourcesFromAll(common::Database& database, std::int64_t mask) {
    removeTrackSources(
        database, mask,
        pids(database.query("SELECT item_pid FROM item WHERE sources & ? <> 0", mask)));
    removePlaylistSources(
        database, mask,
        pids(database.query("SELECT container_pid FROM container WHERE sources & ? <> 0", mask)));
}

}  // namespace korvane
