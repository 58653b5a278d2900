#include "device/korvane/import/unreported_changes.h"

#include "common/sqlite/database.h"

namespace korvane {

UnreportedChanges::UnreportedChanges(common::Database& database, std::int64_t coveredRevision) {
    common::Query rows = database.query(
        "SELECT entity_kind, pid, deleted, sync_id, global_id FROM entity_revision"
        " WHERE revision > ? AND entity_kind IN (0, 1)"
        " AND (origin = '' OR origin IN (SELECT peer_uid FROM peer))",
        coveredRevision);
    while (rows.step()) {
        Kind& kind = _kinds[rows->int64(0)];
        if (rows->int64(2) == 0) {
            kind.changed.insert(rows->int64(1));
            continue;
        }
        kind.deletedSyncIDs.insert(rows->int64(3));
        kind.deletedGlobalIDs.insert(rows->int64(4));
    }
    for (Kind& kind : _kinds) {
        kind.deletedSyncIDs.erase(0);
        kind.deletedGlobalIDs.erase(0);
    }
}

bool UnreportedChanges::isDeleted(EntityKind kind, std::int64_t syncID,
                                  std::int64_t globalID) const {
    return of(kind).deletedSyncIDs.contains(syncID) || of(kind).deletedGlobalIDs.contains(globalID);
}

bool UnreportedChanges::isChanged(EntityKind kind, std::int64_t pid) const {
    return of(kind).changed.contains(pid);
}

void UnreportedChanges::markAgain(common::Database& database) const {
    for (const EntityKind kind : {EntityKind::Track, EntityKind::Playlist}) {
        for (const std::int64_t pid : of(kind).changed) {
            database.execute(
                "UPDATE entity_revision SET origin = '' WHERE entity_kind = ? AND pid = ?"
                " AND deleted = 0 AND origin <> ''",
                static_cast<int>(kind), pid);
        }
    }
}

}  // namespace korvane
