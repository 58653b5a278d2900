#include "device/korvane/import/change_origin.h"

#include "common/sqlite/database.h"

namespace korvane {

void ChangeOrigin::write(std::string_view origin, bool insertsInBulk) {
    _database.execute("UPDATE change_state SET origin = ?, inserts_in_bulk = ?", origin,
                      insertsInBulk);
}

void ChangeOrigin::giveRevisionsToNewTracks(std::int64_t firstItemID, std::int64_t lastItemID) {
    _database.execute(
        "INSERT INTO entity_revision (entity_kind, pid, origin)"
        " SELECT 0, item_pid, ?3 FROM item WHERE item_id BETWEEN ?1 AND ?2 ORDER BY item_id",
        firstItemID, lastItemID, _uid);
    _database.execute("UPDATE row_count SET items = items + ?", lastItemID - firstItemID + 1);
}

void ChangeOrigin::aboutToChange() {
    if (!_isSet) {
        _isSet = true;
        write(_uid, true);
    }
}

void ChangeOrigin::tellEverybody(EntityKind kind, std::int64_t pid) {
    aboutToChange();
    _hasNewsForPeer = true;
    const int entityKind = static_cast<int>(kind);
    const bool isGiven =
        _database.execute(
            "UPDATE entity_revision SET origin = ?3 WHERE entity_kind = ?1 AND pid = ?2"
            " AND deleted = 0 AND revision > (SELECT base_revision FROM change_state)",
            entityKind, pid, OwnerOrigin) != 0;
    if (!isGiven) {
        ++_toldUnchanged[static_cast<std::size_t>(kind)];
        _database.execute("DELETE FROM entity_revision WHERE entity_kind = ? AND pid = ?",
                          entityKind, pid);
        _database.execute("INSERT INTO entity_revision (entity_kind, pid, origin) VALUES (?, ?, ?)",
                          entityKind, pid, OwnerOrigin);
    }
}

void ChangeOrigin::end() {
    if (_isSet) {
        write(OwnerOrigin, false);
    }
}

}  // namespace korvane
