#include "device/korvane/identifiers.h"

#include <fmt/format.h>

#include "common/random_id.h"
#include "common/sqlite/database.h"

namespace korvane {

bool isTakenID(common::Database& database, std::int64_t id) {
    return database.int64(
               "SELECT EXISTS (SELECT 1 FROM item WHERE item_pid = ?1)"
               " OR EXISTS (SELECT 1 FROM container WHERE container_pid = ?1)"
               " OR EXISTS (SELECT 1 FROM item_store WHERE sync_id = ?1 AND sync_id <> 0)"
               " OR EXISTS (SELECT 1 FROM container WHERE sync_id = ?1 AND sync_id <> 0)"
               " OR EXISTS (SELECT 1 FROM entity_revision WHERE entity_kind = 0 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM entity_revision WHERE entity_kind = 1 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM tombstone WHERE entity_kind = 0 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM tombstone WHERE entity_kind = 1 AND pid = ?1)"
               " OR EXISTS (SELECT 1 FROM removed_memory WHERE item_pid = ?1)",
               id) != 0;
}

std::int64_t newPersistentID(common::Database& database) {
    for (;;) {
        const std::int64_t id = common::randomPositiveId();
        if (!isTakenID(database, id))
            return id;
    }
}

std::string randomUID() {
    return fmt::format("{:016X}{:016X}", common::randomPositiveId(), common::randomPositiveId());
}

}  // namespace korvane
