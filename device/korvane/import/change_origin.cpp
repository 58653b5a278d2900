#include "device/korvane/import/change_origin.h"

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

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

void ChangeOrigin::end() {
    if (_isSet) {
        write(OwnerOrigin, false);
    }
}

}  // namespace korvane
