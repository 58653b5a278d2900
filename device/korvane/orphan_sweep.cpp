#include "device/korvane/orphan_sweep.h"

#include <cstring>
#include <unordered_set>

#include "common/sqlite/database.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/library.h"
#include "device/korvane/track_location.h"
#include "device/korvane/wanted_pictures.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

using Names = std::unordered_set<std::string>;

// The schema's music folders and the one of podcasts, which hosts fill; other locations' files are
// left alone.
constexpr std::int64_t FirstMusicLocation = 200;
constexpr std::int64_t PodcastsLocation = 310;

struct Folder {
    std::string path;  // absolute, with a slash at its end
    Names files;       // that no track is known to have, relative to it
};
using Folders = std::unordered_map<std::int64_t, Folder>;  // by base location

Folders sweptFolders(common::Database& database) {
    Folders folders;
    for (auto& [location, path] : foldersThatHostsFill(database))
        folders[location].path = path;
    return folders;
}

// One pass over the tracks, whatever the number of folders.
void forgetFilesOfTracks(common::Database& database, Folders& folders) {
    auto rows = database.query(
        "SELECT i.base_location_id, e.location_file_name FROM item i NOT INDEXED CROSS JOIN "
        "item_extra e ON e.item_id = i.item_id WHERE i.base_location_id <> 0");
    while (rows.step())
        if (const auto folder = folders.find(rows->int64(0)); folder != folders.end())
            folder->second.files.erase(std::string(rows->text(1)));
}

}  // namespace

std::unordered_map<std::int64_t, std::string> foldersThatHostsFill(common::Database& database) {
    std::unordered_map<std::int64_t, std::string> folders;
    auto rows = database.query(
        "SELECT base_location_id, path FROM base_location WHERE base_location_id BETWEEN ? AND ? "
        "OR base_location_id = ?",
        FirstMusicLocation, FirstStoreLocation - 1, PodcastsLocation);
    while (rows.step())
        folders[rows->int64(0)] = MediaDirectory + std::string(rows->text(1)) + "/";
    return folders;
}

bool OrphanSweep::run(const std::function<bool()>& mayGoOn) {
    return !isSafe() || (sweepMedia(mayGoOn) && sweepArtwork(mayGoOn));
}

bool OrphanSweep::isSafe() {
    bool isFilled = false, wasFilled = false;
    _library.read("sweep", [&](common::Database& database) {
        const bool isSynced =
            !databaseProperty(database, SyncAnchorProperty).isNull() ||
            database.int64("SELECT EXISTS (SELECT 1 FROM peer WHERE received_revision > 0)") != 0;
        isFilled = isSynced && database.int64("SELECT items FROM row_count") > 0;
        wasFilled = databaseProperty(database, WasFilledProperty).boolValue();
        return true;
    });
    // Tells one that was emptied from one that lost its tracks, which begins with a new database.
    if (isFilled && !wasFilled)
        _library.change("sweep", [](common::Database& database) {
            setDatabaseProperty(database, WasFilledProperty, true);
            return true;
        });
    return isFilled || wasFilled;
}

bool OrphanSweep::sweepMedia(const std::function<bool()>& mayGoOn) {
    const ActivityLock::Hold hold = mayGoOn() ? _lock.tryHoldForSweep() : ActivityLock::Hold();
    if (!hold)
        return false;
    Folders folders = _library.connections().reading<Folders>(sweptFolders);
    // Listed before the library is asked: what is not known then is an orphan.
    for (auto& [location, folder] : folders) {
        const auto present = _library.configuration().files.subpathsOfDirectory(folder.path);
        folder.files.insert(present.begin(), present.end());
        if (!mayGoOn())
            return false;
    }
    const bool areKnown = _library.read("sweep", [&](common::Database& database) {
        forgetFilesOfTracks(database, folders);
        return true;
    });
    if (!areKnown)
        return false;
    for (const auto& [location, folder] : folders) {
        std::vector<std::string> orphans;
        for (const std::string& name : folder.files)
            orphans.push_back(folder.path + name);
        removeFiles(orphans);
    }
    return true;
}

bool OrphanSweep::sweepArtwork(const std::function<bool()>& mayGoOn) {
    const ActivityLock::Hold hold = mayGoOn() ? _lock.tryHoldForSweep() : ActivityLock::Hold();
    if (!hold)
        return false;
    const auto present =
        _library.configuration().files.subpathsOfDirectory(ArtworkOriginalsDirectory);
    const auto wanted = _library.connections().reading<Names>(wantedPictures);
    std::vector<std::string> orphans, paths;
    for (const std::string& path : present)
        if (!wanted.contains(path)) {
            orphans.push_back(path);
            paths.push_back(ArtworkStore::originalPath(path));
        }
    // The rows first: one without its picture would be believed.
    const bool areForgotten = _library.change("sweep", [&](common::Database& database) {
        auto row = database.prepare("DELETE FROM artwork WHERE relative_path = ?");
        for (const std::string& orphan : orphans) {
            row->bindAllBorrowed(orphan);
            row.run();
        }
        return true;
    });
    if (areForgotten)
        removeFiles(paths);
    return areForgotten;
}

void OrphanSweep::removeFiles(const std::vector<std::string>& paths) {
    device::RootedFileSystem& files = _library.configuration().files;
    for (const std::string& path : paths) {
        const auto attributes = files.attributes(path, nullptr);
        if (!attributes || !attributes->isRegularFile)
            continue;
        if (const int error = files.unlink(path))
            _library.log().warning("sweep", path + ": " + std::strerror(error));
    }
}

}  // namespace korvane
