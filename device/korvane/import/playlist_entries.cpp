#include "device/korvane/import/playlist_entries.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <unordered_set>
#include <utility>

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

std::vector<PlaylistEntry> withEntriesOfOthers(common::Database& database, std::int64_t containerID,
                                               std::int64_t sourceBit,
                                               std::vector<PlaylistEntry> entries) {
    auto rows = database.query(
        "SELECT c.item_pid, c.item_pid <> 0 AND i.sources & ? = 0 FROM container_item c LEFT JOIN "
        "item i ON i.item_pid = c.item_pid WHERE c.container_id = ? ORDER BY c.position",
        sourceBit, containerID);
    std::vector<std::pair<std::int64_t, bool>> held;  // a track, and whether it is another's
    bool hasOthers = false;
    while (rows.step()) {
        held.emplace_back(rows->int64(0), rows->int64(1) != 0);
        hasOthers = hasOthers || held.back().second;
    }
    if (!hasOthers) {
        return entries;
    }
    std::unordered_set<std::int64_t> named;
    for (const PlaylistEntry& entry : entries) {
        named.insert(entry.itemPID);
    }
    // Behind the last entry before them that stays; 0: at the front.
    std::unordered_map<std::int64_t, std::vector<PlaylistEntry>> others;
    std::int64_t anchor = 0;
    for (const auto& [track, isAnothers] : held) {
        if (track != 0 && named.contains(track)) {
            anchor = track;
        } else if (isAnothers) {
            others[anchor].push_back({track, 0, 0, 0});
        }
    }
    std::vector<PlaylistEntry> all = std::move(others[0]);
    for (const PlaylistEntry& entry : entries) {
        all.push_back(entry);
        // Where a track stands twice, behind the first.
        if (auto behind = others.extract(entry.itemPID); entry.itemPID != 0 && behind) {
            std::ranges::move(behind.mapped(), std::back_inserter(all));
        }
    }
    return all;
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
