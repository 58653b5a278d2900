#include "device/korvane/track_location.h"

#include <cerrno>
#include <optional>
#include <string_view>
#include <unordered_set>

#include "common/hash.h"
#include "common/sqlite/database.h"
#include "device/korvane/configuration.h"
#include "device/system/rooted_file_system.h"

namespace korvane {

namespace {

// Ids for folders that the schema does not list; a device restore brings these back.
constexpr std::int64_t FirstOtherLocation = 100;
constexpr std::int64_t LastOtherLocation = 199;

struct Location {
    std::int64_t baseLocationID = 0;
    std::string fileName;  // may hold folders
};

bool hasDotComponent(std::string_view path) {
    while (!path.empty()) {
        const auto slash = path.find('/');
        const auto component = path.substr(0, slash);
        if (component.empty() || component == "." || component == "..")
            return true;
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return false;
}

// The part below the media directory; absent for what lies elsewhere.
std::optional<std::string> pathInMedia(std::string_view path) {
    constexpr std::string_view Private = "/private";
    if (path.starts_with("/private/"))
        path.remove_prefix(Private.size());
    if (!path.starts_with(MediaDirectory))
        return std::nullopt;
    path.remove_prefix(std::string_view(MediaDirectory).size());
    if (path.empty() || hasDotComponent(path))
        return std::nullopt;
    return std::string(path);
}

std::int64_t makeOtherLocation(common::Database& database, const std::string& folder) {
    const auto last = database.int64(
        "SELECT max(base_location_id) FROM base_location WHERE base_location_id BETWEEN ? AND ?",
        FirstOtherLocation, LastOtherLocation);
    const auto id = last == 0 ? FirstOtherLocation : last + 1;
    if (id > LastOtherLocation)
        return 0;
    database.execute("INSERT INTO base_location (base_location_id, path) VALUES (?, ?)", id,
                     folder);
    return id;
}

// The longest base location that the path lies in.
Location locate(common::Database& database, const std::string& path) {
    for (auto slash = path.rfind('/'); slash != std::string::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        const auto id = database.int64("SELECT base_location_id FROM base_location WHERE path = ?",
                                       std::string_view(path).substr(0, slash));
        if (id != 0)
            return {id, path.substr(slash + 1)};
    }
    const auto slash = path.find('/');
    if (slash == std::string::npos)
        return {};
    const auto id = makeOtherLocation(database, path.substr(0, slash));
    return id == 0 ? Location() : Location{id, path.substr(slash + 1)};
}

void store(common::Database& database, std::int64_t trackPID, const Location& location) {
    database.execute(
        "UPDATE item SET base_location_id = ?2 WHERE item_pid = ?1 AND base_location_id <> ?2",
        trackPID, location.baseLocationID);
    database.execute(
        "UPDATE item_extra SET location_file_name = ?2 WHERE item_pid = ?1 AND location_file_name "
        "<> ?2",
        trackPID, location.fileName);
}

// The files of one base location.
class LocationFiles {
public:
    LocationFiles(device::RootedFileSystem& files, const std::string& folder)
        : _files(files), _directory(MediaDirectory + folder) {
        platform::OptionalError error;
        if (const auto names = files.contentsOfDirectory(_directory, &error))
            _names.insert(names->begin(), names->end());
        else
            _isReadable = error && error->code == ENOENT;
    }
    bool isMissing(const std::string& name) const {
        if (!_isReadable)
            return false;
        return name.find('/') == std::string::npos ? !_names.contains(name)
                                                   : !_files.fileExists(_directory + "/" + name);
    }

private:
    device::RootedFileSystem& _files;
    const std::string _directory;
    std::unordered_set<std::string> _names;
    bool _isReadable = true;
};

}  // namespace

std::string hashOfFile(common::Database& database, std::int64_t trackPID) {
    auto row = database.query(
        "SELECT e.content_hash, i.base_location_id FROM item i JOIN item_extra e ON e.item_id = "
        "i.item_id WHERE i.item_pid = ?",
        trackPID);
    if (!row.step() || !isFileOfContentHash(row->int64(1)))
        return {};
    const auto hash = row->blob(0);
    return hash.size() == std::tuple_size<common::Hash128>() ? std::string(hash.begin(), hash.end())
                                                             : std::string();
}

bool recordLocation(common::Database& database, device::RootedFileSystem& files,
                    std::int64_t trackPID, const std::string& path) {
    const auto inMedia = pathInMedia(path);
    const auto attributes =
        inMedia ? files.attributes(MediaDirectory + *inMedia, nullptr) : std::nullopt;
    if (!attributes || !attributes->isRegularFile) {
        store(database, trackPID, {});
        return true;
    }
    store(database, trackPID, locate(database, *inMedia));
    database.execute(
        "UPDATE item_extra SET total_size = ?2 WHERE item_pid = ?1 AND total_size <> ?2", trackPID,
        static_cast<std::int64_t>(attributes->size));
    return true;
}

std::vector<std::int64_t> tracksWithoutTheirFile(common::Database& database,
                                                 device::RootedFileSystem& files) {
    std::vector<std::int64_t> missing;
    auto locations = database.query(
        "SELECT base_location_id, path FROM base_location WHERE base_location_id IN (SELECT "
        "DISTINCT base_location_id FROM item) AND base_location_id NOT IN (0, ?)",
        CloudAssetsLocation);
    std::vector<std::pair<std::int64_t, LocationFiles>> byID;
    while (locations.step())
        byID.emplace_back(locations->int64(0),
                          LocationFiles(files, std::string(locations->text(1))));
    for (const auto& [id, present] : byID) {
        auto tracks = database.query(
            "SELECT i.item_id, e.location_file_name FROM item i NOT INDEXED CROSS JOIN item_extra "
            "e "
            "ON e.item_id = i.item_id WHERE i.base_location_id = ?",
            id);
        while (tracks.step())
            if (present.isMissing(std::string(tracks->text(1))))
                missing.push_back(tracks->int64(0));
    }
    return missing;
}

}  // namespace korvane
