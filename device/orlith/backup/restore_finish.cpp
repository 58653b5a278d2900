#include "device/orlith/backup/restore_finish.h"

#include <algorithm>
#include <exception>
#include <future>
#include <vector>

#include "device/korvane/database_properties.h"
#include "device/korvane/library.h"
#include "device/korvane/listing.h"
#include "device/korvane/purchases.h"
#include "device/orlith/backup/restore_area.h"
#include "device/orlith/session_error.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// Of the manifest: files that belong to no track.
constexpr std::int64_t UnownedFiles = 0;

OptionalError refused(const std::string& text) {
    return Error(OrlithErrorDomain, OrlithErrorRefused, text);
}

// The plug-in's operation succeeds whatever happens. Its transaction takes the anchor away, so one
// that is still there says that nothing was done.
OptionalError reconcile(const RestoreFinishParts& parts) {
    if (!parts.client.respondsTo(ORClientOperation::reconcileRestore))
        return refused("The device's plug-in cannot reconcile a restored library.");
    if (!parts.library.setValueForDatabaseProperty("restored", korvane::SyncAnchorProperty))
        return refused("The restored library cannot be written.");
    OptionalError error;
    if (!parts.client.reconcileRestore(&error))
        return error ? error : refused("The plug-in could not reconcile the restored library.");
    if (!parts.library.valueForDatabaseProperty(korvane::SyncAnchorProperty).isNull())
        return refused("The restored library could not be reconciled.");
    return std::nullopt;
}

std::vector<std::string> unownedFiles(VDDownloadFileManifest& manifest) {
    std::promise<std::vector<std::string>> found;
    manifest.getPathsForFilesWithClass(
        UnownedFiles, [&](const std::optional<std::vector<std::string>>& paths) {
            found.set_value(paths.value_or(std::vector<std::string>()));
        });
    return found.get_future().get();
}

// What the library that was replaced had bought and the restored one does not know: a store may
// have nothing for it any more.
void setUnownedFilesAside(const RestoreFinishParts& parts, RestoreArea& area,
                          const RestorePlan& plan) {
    area.makeAside(plan);
    for (const std::string& path : unownedFiles(*parts.manifest))
        parts.files.moveItem(path, RestoreArea::asidePath(plan, path.substr(path.rfind('/') + 1)));
}

}  // namespace

std::optional<FinishedRestore> finishRestore(const RestoreFinishParts& parts) {
    RestoreArea area(parts.files);
    const auto plan = area.pending();
    if (!plan)
        return std::nullopt;
    FinishedRestore finished;
    const korvane::ActivityLock::Hold hold = parts.activities.holdForFiles();
    const std::uint64_t before = korvane::libraryCounts(parts.library).tracks;
    try {
        finished.error = reconcile(parts);
        if (!finished.error && !plan->paths.empty())
            setUnownedFilesAside(parts, area, *plan);
    } catch (const std::exception& exception) {
        finished.error = internalError(exception.what());
    }
    const korvane::LibraryCounts counts = korvane::libraryCounts(parts.library);
    finished.tracks = counts.tracks;
    finished.playlists = counts.playlists;
    finished.waiting = korvane::countOfLostFiles(parts.library);
    finished.fetched = korvane::filesToFetchAgain(parts.library).size();
    finished.removed = before - std::min(before, counts.tracks);
    finished.libraryUID = parts.library.uid();
    finished.kept = RestoreArea::asidePath(*plan, "");
    if (!finished.error)
        finished.error = area.finish();
    return finished;
}

}  // namespace orlith
