#include "device/korvane/purchase_files.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>
#include <unordered_map>

#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"
#include "device/korvane/schema.h"
#include "device/korvane/track_location.h"

namespace korvane {
namespace {

using platform::OptionalError;

using Owners = std::unordered_map<std::string, PurchaseFile>;  // by file name

struct FileName {
    std::int64_t track = 0;  // 0: it is not named after any
    std::string extension;   // without dot
};

FileName parse(std::string_view name) {
    const std::size_t dot = name.find('.');
    if (dot == std::string_view::npos)
        return {};
    FileName parsed;
    const auto result = std::from_chars(name.data(), name.data() + dot, parsed.track);
    if (result.ec != std::errc() || result.ptr != name.data() + dot)
        return {};
    parsed.extension = name.substr(dot + 1);
    return parsed;
}

// One pass over the tracks, whatever the number of files.
Owners recordedOwners(common::Database& database) {
    Owners owners;
    auto rows = database.query(
        "SELECT e.location_file_name, i.item_pid, i.sources & ?, p.source FROM item i NOT INDEXED "
        "CROSS JOIN item_extra e ON e.item_id = i.item_id LEFT JOIN purchase p ON p.item_pid = "
        "i.item_pid WHERE i.base_location_id = ?",
        sourceBit(KV3SourceHostData), FirstStoreLocation);
    while (rows.step())
        owners.emplace(rows->text(0), PurchaseFile{rows->int64(1), rows->int64(2) != 0,
                                                   std::string(rows->text(3))});
    return owners;
}

// Records the files of tracks that lack theirs: of two that are named after one track, that with
// the extension that the track's file had.
void takeIn(Library& library, common::Database& database, const std::vector<std::string>& names,
            bool withOtherExtensions) {
    for (const std::string& name : names) {
        const FileName parsed = parse(name);
        const bool lacksFile =
            parsed.track != 0 &&
            database.int64(
                "SELECT count(*) FROM item i JOIN item_extra e ON e.item_id = i.item_id WHERE "
                "i.item_pid = ? AND i.base_location_id = 0 AND (? OR e.file_extension = ?)",
                parsed.track, withOtherExtensions, parsed.extension) != 0;
        if (!lacksFile)
            continue;
        recordLocation(database, library.configuration().files, parsed.track,
                       std::string(PurchasesDirectory) + "/" + name);
        database.execute(
            "UPDATE item SET needs_restore = 0 WHERE item_pid = ? AND base_location_id <> 0",
            parsed.track);
        if (withOtherExtensions)
            database.execute("UPDATE item_extra SET file_extension = ? WHERE item_pid = ?",
                             parsed.extension, parsed.track);
    }
}

}  // namespace

std::optional<std::vector<PurchaseFile>> settlePurchaseFiles(Library& library,
                                                             const std::vector<std::string>& names,
                                                             OptionalError& error) {
    Owners owners;
    error = editAsOwner(library, [&](common::Database& database) -> OptionalError {
        owners = recordedOwners(database);
        std::vector<std::string> unowned;
        std::ranges::copy_if(names, std::back_inserter(unowned),
                             [&](const std::string& name) { return !owners.contains(name); });
        if (unowned.empty())
            return std::nullopt;
        takeIn(library, database, unowned, false);
        takeIn(library, database, unowned, true);
        owners = recordedOwners(database);
        return std::nullopt;
    });
    if (error)
        return std::nullopt;
    std::vector<PurchaseFile> files;
    files.reserve(names.size());
    for (const std::string& name : names) {
        const auto owner = owners.find(name);
        files.push_back(owner == owners.end() ? PurchaseFile() : owner->second);
    }
    return files;
}

}  // namespace korvane
