#include "device/korvane/import/change_origin.h"

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace korvane {

void ChangeOrigin::write(std::string_view origin) {
    _database.execute("UPDATE change_state SET origin = ?", origin);
}

void ChangeOrigin::aboutToChange() {
    if (!_isSet) {
        _isSet = true;
        write(_uid);
    }
}

void ChangeOrigin::end() {
    if (_isSet) {
        write(OwnerOrigin);
    }
}

}  // namespace korvane
