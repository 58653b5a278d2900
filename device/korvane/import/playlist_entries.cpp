#include "device/korvane/import/playlist_entries.h"

#include <algorithm>

#include "common/sqlite/database.h"

namespace korvane {

namespace {

// An entry that another device named has a persistent id: its sync id means nothing here.
constexpr char ResolveWaiting[] =
    "UPDATE container_item SET item_pid = ifnull("
    "  (SELECT item_pid FROM item_extra WHERE global_id = foreign_global_id AND global_id <> 0),"
    "  (SELECT item_pid FROM item_store WHERE sync_id = foreign_sync_id AND sync_id <> 0)),"
    " foreign_pid = 0, foreign_sync_id = 0, foreign_global_id = 0"
    " WHERE item_pid = 0 AND ("
    "  EXISTS (SELECT 1 FROM item_extra WHERE global_id = foreign_global_id AND global_id <> 0)"
    "  OR (foreign_pid = 0 AND EXISTS (SELECT 1 FROM item_store"
    "       WHERE sync_id = foreign_sync_id AND sync_id <> 0)))";
constexpr char ResolvePeers[] =
    "UPDATE container_item SET item_pid = (SELECT p.pid FROM peer_identity p"
    "  WHERE p.peer_id = ?1 AND p.entity_kind = 0 AND p.peer_pid = foreign_pid),"
    " foreign_pid = 0, foreign_sync_id = 0, foreign_global_id = 0"
    " WHERE item_pid = 0 AND foreign_pid <> 0 AND foreign_global_id = 0"
    "  AND EXISTS (SELECT 1 FROM peer_identity p JOIN item i ON i.item_pid = p.pid"
    "   WHERE p.peer_id = ?1 AND p.entity_kind = 0 AND p.peer_pid = foreign_pid)";

bool hasWaitingEntries(common::Database& database) {
    return database.int64("SELECT EXISTS (SELECT 1 FROM container_item WHERE item_pid = 0)") != 0;
}

}  // namespace

std::vector<PlaylistEntry> playlistEntries(common::Database& database, std::int64_t containerID) {
    std::vector<PlaylistEntry> entries;
    common::Query rows = database.query(
        "SELECT item_pid, foreign_pid, foreign_sync_id, foreign_global_id FROM container_item"
        " WHERE container_id = ? ORDER BY position",
        containerID);
    while (rows.step()) {
        entries.push_back({rows->int64(0), rows->int64(1), rows->int64(2), rows->int64(3)});
    }
    return entries;
}

bool writePlaylistEntries(common::Database& database, std::int64_t containerID,
                          const std::vector<PlaylistEntry>& entries,
                          const std::function<void()>& aboutToChange) {
    const std::vector<PlaylistEntry> old = playlistEntries(database, containerID);
    const auto [firstOld, firstNew] = std::ranges::mismatch(old, entries);
    if (firstOld == old.end() && firstNew == entries.end()) {
        return false;
    }
    aboutToChange();
    const std::int64_t kept = firstOld - old.begin();
    std::int64_t position = database.int64(
        "SELECT ifnull(max(position), -1) + 1 FROM (SELECT position FROM container_item"
        " WHERE container_id = ? ORDER BY position LIMIT ?)",
        containerID, kept);
    database.execute("DELETE FROM container_item WHERE container_id = ? AND position >= ?",
                     containerID, position);
    common::Query insert = database.prepare(
        "INSERT INTO container_item (container_id, position, item_pid, foreign_pid,"
        " foreign_sync_id, foreign_global_id) VALUES (?, ?, ?, ?, ?, ?)");
    for (auto entry = firstNew; entry != entries.end(); ++entry) {
        insert->bindAll(containerID, position++, entry->itemPID, entry->foreignPID,
                        entry->foreignSyncID, entry->foreignGlobalID);
        insert.run();
    }
    return true;
}

void resolveWaitingEntries(common::Database& database) {
    if (hasWaitingEntries(database)) {
        database.execute(ResolveWaiting);
    }
}

void resolveEntriesOfPeer(common::Database& database, std::int64_t peerID) {
    if (hasWaitingEntries(database)) {
        database.execute(ResolvePeers, peerID);
    }
}

}  // namespace korvane
