#include "device/korvane/change_log.h"

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/database_properties.h"

namespace korvane {

void pruneChangeLog(common::Database& database) {
    auto known = database.int64("SELECT ifnull(min(acknowledged_revision), 0) FROM peer");
    // The host is told of deletions by saves, which begin here.
    const auto saved = databaseProperty(database, LastSyncedRevisionProperty);
    if (!saved.isNull())
        known = std::min(known, saved.int64Value());
    if (known > 0)
        database.execute("DELETE FROM entity_revision WHERE deleted <> 0 AND revision <= ?", known);
}

}  // namespace korvane
