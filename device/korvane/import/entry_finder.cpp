#include "device/korvane/import/entry_finder.h"

#include "device/korvane/import/named_entries.h"

namespace korvane {

namespace {

struct FindStatements {
    const char* byPID;
    const char* bySyncID;
    const char* byPeersID;
    const char* byGlobalID;
};

// "<> 0" as well: the indices leave out the zeros.
constexpr FindStatements Tracks = {
    "SELECT item_id, item_pid FROM item WHERE item_pid = ?",
    "SELECT item_id, item_pid FROM item_store WHERE sync_id = ? AND sync_id <> 0",
    "SELECT i.item_id, i.item_pid FROM peer_identity p JOIN item i ON i.item_pid = p.pid"
    " WHERE p.peer_id = ? AND p.entity_kind = 0 AND p.peer_pid = ?",
    "SELECT item_id, item_pid FROM item_extra WHERE global_id = ? AND global_id <> 0",
};

constexpr FindStatements Playlists = {
    "SELECT container_id, container_pid FROM container WHERE container_pid = ?",
    "SELECT container_id, container_pid FROM container WHERE sync_id = ? AND sync_id <> 0",
    "SELECT c.container_id, c.container_pid FROM peer_identity p"
    " JOIN container c ON c.container_pid = p.pid"
    " WHERE p.peer_id = ? AND p.entity_kind = 1 AND p.peer_pid = ?",
    "SELECT container_id, container_pid FROM container WHERE global_id = ? AND global_id <> 0",
};

const FindStatements& statementsFor(EntityKind kind) {
    return kind == EntityKind::Track ? Tracks : Playlists;
}

}  // namespace

EntryFinder::EntryFinder(common::Database& database, EntityKind kind, std::int64_t peerID,
                         const NamedEntries* named)
    : _named(named),
      _peerID(peerID),
      _byPID(database.prepare(statementsFor(kind).byPID)),
      _bySyncID(database.prepare(statementsFor(kind).bySyncID)),
      _byPeersID(database.prepare(statementsFor(kind).byPeersID)),
      _byGlobalID(database.prepare(statementsFor(kind).byGlobalID)) {}

std::optional<FoundEntry> EntryFinder::first(common::Query& query, std::int64_t id) {
    if (id == 0) {
        return std::nullopt;
    }
    query->bind(1, id);
    std::optional<FoundEntry> found;
    if (query.step()) {
        found = FoundEntry{query->int64(0), query->int64(1)};
    }
    query->reset();
    return found;
}

std::optional<FoundEntry> EntryFinder::firstUnnamed(common::Query& query) {
    // Entries that share an id are few, unless somebody means harm.
    constexpr int MostTwins = 16;
    std::optional<FoundEntry> found;
    for (int twin = 0; !found && twin < MostTwins && query.step(); ++twin) {
        if (_named == nullptr || !_named->contains(query->int64(0))) {
            found = FoundEntry{query->int64(0), query->int64(1)};
        }
    }
    query->reset();
    return found;
}

std::optional<FoundEntry> EntryFinder::byPeersID(std::int64_t id) {
    if (id == 0 || _peerID == 0) {
        return std::nullopt;
    }
    _byPeersID->bindAll(_peerID, id);
    return firstUnnamed(_byPeersID);
}

std::optional<FoundEntry> EntryFinder::byGlobalID(std::int64_t id) {
    if (id == 0) {
        return std::nullopt;
    }
    _byGlobalID->bindAll(id);
    return firstUnnamed(_byGlobalID);
}

std::optional<FoundEntry> EntryFinder::find(const RecordIDs& ids) {
    std::optional<FoundEntry> found = byOwnID(ids.ownID);
    if (!found) {
        found = bySyncID(ids.syncID);
    }
    if (!found) {
        found = byPeersID(ids.persistentID);
    }
    return found ? found : byGlobalID(ids.globalID);
}

std::optional<FoundEntry> EntryFinder::findPeers(const RecordIDs& ids) {
    std::optional<FoundEntry> found = byOwnID(ids.ownID);
    if (!found) {
        found = byPeersID(ids.persistentID);
    }
    return found ? found : byGlobalID(ids.globalID);
}

}  // namespace korvane
