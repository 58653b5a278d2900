// Library's operations on the smart playlists.
#include "common/sqlite/database.h"
#include "device/korvane/built_in_playlists.h"
#include "device/korvane/library.h"
#include "device/korvane/smart_fill.h"

namespace korvane {

std::vector<std::int64_t> Library::autoCreatedBuiltInSmartPlaylistsPIDs() {
    std::vector<std::int64_t> pids;
    read("autoCreatedBuiltInSmartPlaylistsPIDs:", [&](common::Database& database) {
        pids = autoCreatedPlaylists(database);
        return true;
    });
    return pids;
}

bool Library::populateDynamicContainers(bool createsBuiltIns) {
    const std::int64_t now = nowMilliseconds();
    return change("populateDynamicContainersInLibrary:createBuiltinSmartPlaylists:",
                  [&](common::Database& database) {
                      if (createsBuiltIns)
                          createBuiltInPlaylists(database, now);
                      fillSmartPlaylists(database, now / 1000);
                      return true;
                  });
}

bool Library::deleteAutoCreatedBuiltInSmartPlaylists(
    const std::vector<std::int64_t>& persistentIDs) {
    return change("deleteAutoCreatedBuiltInSmartPlaylistsPIDs:inLibrary:",
                  [&](common::Database& database) {
                      deleteAutoCreatedPlaylists(database, persistentIDs);
                      return true;
                  });
}

}  // namespace korvane
