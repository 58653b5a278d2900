#include "device/korvane/import/deleted_entries.h"

#include "device/korvane/change_times.h"
#include "device/korvane/import/new_ids.h"

namespace korvane {

DeletedEntries::DeletedEntries(common::Database& database)
    : _database(database),
      _remembersAny(database.int64("SELECT EXISTS (SELECT 1 FROM deleted_entry)") != 0),
      _find(database.prepare(
          "SELECT deleted_ms FROM deleted_entry WHERE entity_kind = ? AND global_id = ?")) {}

std::int64_t DeletedEntries::deletedMs(EntityKind kind, std::int64_t globalID) {
    if (!_remembersAny || globalID == 0) {
        return 0;
    }
    _find->bindAll(static_cast<int>(kind), globalID);
    const std::int64_t found = _find.step() ? _find->int64(0) : 0;
    _find->reset();
    return found;
}

std::int64_t DeletedEntries::birthMs(EntityKind kind, std::int64_t globalID, std::int64_t nowMs) {
    return changeMs(nowMs, deletedMs(kind, globalID));
}

std::int64_t DeletedEntries::pidOf(const Deletion& deletion, NewIDs& newIDs) {
    // An id that lives again tells of that entry.
    const std::int64_t known = _database.int64(
        "SELECT pid FROM deleted_entry WHERE entity_kind = ? AND global_id = ?"
        " AND pid NOT IN (SELECT item_pid FROM item)"
        " AND pid NOT IN (SELECT container_pid FROM container)",
        static_cast<int>(deletion.kind), deletion.globalID);
    return known != 0 ? known : newIDs.next();
}

void DeletedEntries::tell(const Deletion& deletion, std::string_view origin, NewIDs& newIDs) {
    const int kind = static_cast<int>(deletion.kind);
    const std::int64_t pid = pidOf(deletion, newIDs);
    _database.execute(
        "INSERT INTO deleted_entry (entity_kind, global_id, deleted_ms, pid) VALUES (?, ?, ?, ?)"
        " ON CONFLICT (entity_kind, global_id) DO UPDATE"
        " SET deleted_ms = max(deleted_ms, excluded.deleted_ms), pid = excluded.pid",
        kind, deletion.globalID, deletion.deletedMs, pid);
    std::int64_t syncID = 0;
    std::int64_t mediaType = deletion.mediaType;
    if (common::Query told = _database.query(
            "SELECT sync_id, media_type FROM entity_revision WHERE entity_kind = ? AND pid = ?",
            kind, pid);
        told.step()) {
        syncID = told->int64(0);
        mediaType = told->int64(1) != 0 ? told->int64(1) : mediaType;
    }
    _database.execute("DELETE FROM entity_revision WHERE entity_kind = ? AND pid = ?", kind, pid);
    _database.execute(
        "INSERT INTO entity_revision (entity_kind, pid, deleted, origin, sync_id, global_id,"
        " media_type, deleted_ms) VALUES (?, ?, 1, ?, ?, ?, ?, ?)",
        kind, pid, origin, syncID, deletion.globalID, mediaType, deletion.deletedMs);
    _remembersAny = true;
}

}  // namespace korvane
