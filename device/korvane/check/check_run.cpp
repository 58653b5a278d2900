#include "device/korvane/check/check_run.h"

#include <fmt/format.h>

#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/schema.h"
#include "device/korvane/wanted_pictures.h"
#include "device/system/rooted_file_system.h"
#include "platform/media_library.h"

namespace korvane {

void checkLibrary(CheckRun& run) {
    if (!checkDatabase(run))
        return;
    checkDatabasesAside(run);
    checkFiles(run);
    if (run.isStopped)
        return;
    checkArtwork(run);
    checkRecords(run);
    checkRevisions(run);
}

bool setFileAside(Library& library, const std::string& path) {
    device::RootedFileSystem& files = library.configuration().files;
    const std::string_view media = MediaDirectory;
    if (!path.starts_with(media))
        return false;
    std::string target = SetAsideDirectory + path.substr(media.size());
    const std::string first = target;
    for (int copy = 2; files.fileExists(target); ++copy)
        target = fmt::format("{}.{}", first, copy);
    if (files.createDirectory(target.substr(0, target.rfind('/'))) || files.moveItem(path, target))
        return false;
    return !files.syncDirectory(target.substr(0, target.rfind('/')));
}

bool setCoversAside(Library& library, std::int64_t persistentID) {
    return library.connections().write([&](common::Database& database) {
        bool asks = true;
        for (const std::string& path : coversOf(database, persistentID)) {
            const std::string whole = ArtworkStore::originalPath(path);
            if (library.artwork().hasOriginal(path) && !setFileAside(library, whole))
                asks = false;
            else
                database.execute("DELETE FROM artwork WHERE relative_path = ?", path);
        }
        return asks;
    });
}

}  // namespace korvane
