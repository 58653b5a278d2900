// Purpose: which of the library's own entries a record means.
// Calling thread: that of the import, inside its transaction.
#pragma once

#include <cstdint>
#include <optional>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace korvane {

class NamedEntries;

// The ids by which records name an entry; 0 where there is none.
struct RecordIDs {
    std::int64_t ownID = 0;
    std::int64_t syncID = 0;
    std::int64_t persistentID = 0;  // the exporter's
    std::int64_t globalID = 0;

    // Of a Track, Playlist, Playlist::Item or Deletion.
    template <typename Record>
    static RecordIDs of(const Record& record) {
        return {record.own_id(), record.sync_id(), record.persistent_id(), record.global_id()};
    }
};

struct FoundEntry {
    std::int64_t rowID = 0;  // item_id or container_id
    std::int64_t pid = 0;
};

// Own id, sync id, the table of the peer's ids, global id: in this order.
class EntryFinder {
public:
    // By the peer's id and the global id only an entry is found that is not in `named`, unless that
    // is null: two records do not mean one entry.
    EntryFinder(common::Database& database, EntityKind kind, std::int64_t peerID,
                const NamedEntries* named);

    std::optional<FoundEntry> find(const RecordIDs& ids);
    // As find, but not by sync id: another device's mean other entries here.
    std::optional<FoundEntry> findPeers(const RecordIDs& ids);
    // Each alone.
    std::optional<FoundEntry> byOwnID(std::int64_t id) { return first(_byPID, id); }
    std::optional<FoundEntry> bySyncID(std::int64_t id) { return first(_bySyncID, id); }
    std::optional<FoundEntry> byPeersID(std::int64_t id);
    std::optional<FoundEntry> byGlobalID(std::int64_t id);

private:
    std::optional<FoundEntry> first(common::Query& query, std::int64_t id);
    std::optional<FoundEntry> firstUnnamed(common::Query& query);

    const NamedEntries* _named;
    const std::int64_t _peerID;
    common::Query _byPID;
    common::Query _bySyncID;
    common::Query _byPeersID;
    common::Query _byGlobalID;
};

}  // namespace korvane
