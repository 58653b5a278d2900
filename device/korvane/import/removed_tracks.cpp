#include "device/korvane/import/removed_tracks.h"

#include "device/korvane/import/record_columns.h"

namespace korvane {

std::optional<std::int64_t> RemovedTracks::recall(std::int64_t globalID, IncomingTrack& values) {
    if (!_remembersAny || globalID == 0) {
        return std::nullopt;
    }
    common::Query row = _database.query(
        "SELECT item_pid, user_rating, rating_changed_ms, bookmark_ms, bookmark_changed_ms,"
        " date_added FROM removed_memory WHERE global_id = ?"
        " AND item_pid NOT IN (SELECT item_pid FROM item)"
        " AND item_pid NOT IN (SELECT container_pid FROM container)"
        " AND NOT EXISTS (SELECT 1 FROM item_store"
        "                 WHERE sync_id = removed_memory.item_pid AND sync_id <> 0)",
        globalID);
    if (!row.step()) {
        return std::nullopt;
    }
    values.rating = row->int64(1);
    values.ratingChangedMs = row->int64(2);
    values.bookmarkMs = row->int64(3);
    values.bookmarkChangedMs = row->int64(4);
    values.dateAdded = row->int64(5);
    return row->int64(0);
}

void RemovedTracks::giveBack(std::int64_t globalID, std::int64_t pid) {
    _database.execute(
        "INSERT OR REPLACE INTO play_statistics (item_pid, origin_uid, play_count, skip_count,"
        " last_played_ms, last_skipped_ms)"
        " SELECT ?, origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms"
        " FROM removed_play_statistics WHERE global_id = ?",
        pid, globalID);
    _database.execute("DELETE FROM removed_play_statistics WHERE global_id = ?", globalID);
    _database.execute("DELETE FROM removed_memory WHERE global_id = ?", globalID);
    _database.execute("DELETE FROM entity_revision WHERE entity_kind = 0 AND pid = ?", pid);
    _database.execute("DELETE FROM tombstone WHERE entity_kind = 0 AND pid = ?", pid);
}

}  // namespace korvane
