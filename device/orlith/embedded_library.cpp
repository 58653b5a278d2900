#include "device/orlith/embedded_library.h"

#include "device/korvane/check/check_run.h"
#include "device/korvane/listing.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/save/host_saver.h"
#include "device/orlith/backup/restore_area.h"
#include "device/system/rooted_file_system.h"

namespace orlith {
namespace {

constexpr std::string_view AnchorProperty = "KVSyncClientSyncAnchor";

}  // namespace

std::string EmbeddedLibrary::libraryUID() {
    return _library.uid();
}

std::string EmbeddedLibrary::anchor() {
    const platform::Value anchor = _library.valueForDatabaseProperty(AnchorProperty);
    return anchor.isNull() ? "0" : anchor.description();
}

std::int64_t EmbeddedLibrary::revision() {
    return _library.currentRevision();
}

void EmbeddedLibrary::sessionBegan() {
    _session = _activities.holdForFiles();
    _imports.resetCancel();
}

void EmbeddedLibrary::sessionEnded() {
    _imports.resetCancel();
    _session.release();
    // What was held back while the session had the lock.
    _tasks.schedule();
}

void EmbeddedLibrary::registerHostData(const std::string& devicePath) {
    _imports.registerHostDataFile(devicePath);
}

void EmbeddedLibrary::unregisterHostData() {
    _imports.unregisterHostDataFile();
}

platform::OptionalError EmbeddedLibrary::lastHostImportFailure() {
    return _imports.lastHostImportFailure();
}

std::vector<SavedChanges> EmbeddedLibrary::savedChanges(std::uint32_t torvelID) {
    std::vector<SavedChanges> saved;
    if (std::string path = korvane::savedTracksPath(torvelID); _files.fileExists(path))
        saved.push_back({false, std::move(path)});
    if (std::string path = korvane::savedPlaylistsPath(torvelID); _files.fileExists(path))
        saved.push_back({true, std::move(path)});
    return saved;
}

std::int64_t EmbeddedLibrary::coveredRevision() {
    return korvane::savedRevision(_files, _library.uid()).value_or(0);
}

std::vector<std::string> EmbeddedLibrary::filesHeldByHostAlone() {
    return korvane::filesHeldByHostAlone(_library);
}

void EmbeddedLibrary::adoptFoundPictures() {
    _library.recordFoundOriginals();
}

void EmbeddedLibrary::discardChapterPictures(std::int64_t syncID,
                                             const std::vector<std::uint64_t>& milliseconds) {
    _library.discardChapterPictures(syncID, milliseconds);
}

LibraryStatistics EmbeddedLibrary::statistics() {
    const korvane::LibraryCounts counts = korvane::libraryCounts(_library);
    return {counts.tracks, counts.playlists, counts.missingFiles, _tasks.isSuppressed()};
}

std::vector<KeptPlace> EmbeddedLibrary::keptPlaces() {
    const korvane::Configuration& configuration = _library.configuration();
    device::RootedFileSystem& files = configuration.files;
    std::vector<KeptPlace> places;
    const auto add = [&places](const std::string& path, std::uint64_t bytes) {
        if (bytes > 0)
            places.push_back({path, bytes});
    };
    for (const std::string path : {ReplacedDirectory, korvane::SetAsideDirectory})
        add(path, files.diskUsage(path));
    for (const std::string& path : korvane::carriedDatabases(files, configuration.databasePath))
        add(path, files.attributes(path, nullptr).value_or(platform::FileAttributes()).size);
    return places;
}

void EmbeddedLibrary::forEachTrack(
    const std::function<bool(const korvane::ListedTrack&)>& callback) {
    korvane::listTracks(_library, callback);
}

void EmbeddedLibrary::forEachPlaylist(
    const std::function<bool(const korvane::ListedPlaylist&)>& callback) {
    korvane::listPlaylists(_library, callback);
}

EditOutcome EmbeddedLibrary::rate(const std::string& track, std::uint32_t stars) {
    EditOutcome outcome;
    const auto found = korvane::findTrack(_library, track, outcome.error);
    if (found)
        outcome = {korvane::rateTrack(_library, found->persistentID, stars), found->title};
    return outcome;
}

EditOutcome EmbeddedLibrary::recordPlay(const std::string& track) {
    EditOutcome outcome;
    const auto found = korvane::findTrack(_library, track, outcome.error);
    if (found)
        outcome = {korvane::recordPlay(_library, found->persistentID), found->title};
    return outcome;
}

}  // namespace orlith
