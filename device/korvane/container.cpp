#include "device/korvane/container.h"

#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/schema.h"

namespace korvane {

bool Container::isBuiltInSmartPlaylist() {
    return _library->read("isBuiltInSmartPlaylist", [&](common::Database& database) {
        return database.int64(
                   "SELECT EXISTS (SELECT 1 FROM container WHERE container_pid = ?1 AND "
                   "built_in_kind <> 0) OR EXISTS (SELECT 1 FROM entity_revision WHERE pid = ?1 "
                   "AND entity_kind = ?2 AND deleted <> 0 AND built_in_kind <> 0)",
                   _persistentID, static_cast<int>(EntityKind::Playlist)) != 0;
    });
}

}  // namespace korvane
