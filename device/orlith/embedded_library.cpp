#include "device/orlith/embedded_library.h"

#include "device/korvane/listing.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/save/host_saver.h"

namespace orlith {
namespace {

constexpr std::string_view AnchorProperty = "KVSyncClientSyncAnchor";

std::optional<std::string> owned(const std::optional<std::string_view>& text) {
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

TrackSummary summaryOf(const korvane::ListedTrack& track) {
    TrackSummary summary;
    summary.persistentID = track.persistentID;
    summary.syncID = track.syncID;
    summary.globalID = track.globalID;
    summary.title = owned(track.title);
    summary.artist = owned(track.artist);
    summary.album = owned(track.album);
    summary.discNumber = track.discNumber;
    summary.trackNumber = track.trackNumber;
    summary.mediaType = track.mediaType;
    if (!track.path.empty())
        summary.path = track.path;
    summary.size = track.size;
    summary.hasArtwork = track.hasArtwork;
    summary.hasKenning = track.hasKenning;
    summary.chapters = track.chapters;
    summary.rating = track.rating;
    summary.playCount = track.playCount;
    summary.contentHash = track.contentHash;
    summary.hostPath = owned(track.hostPath);
    summary.fromHost = track.isFromHost;
    return summary;
}

PlaylistSummary summaryOf(const korvane::ListedPlaylist& playlist) {
    return {playlist.persistentID, playlist.syncID, playlist.globalID,   playlist.name,
            playlist.isSmart,      playlist.tracks, playlist.isFromHost, playlist.isBuiltIn,
            playlist.rules,        playlist.limit};
}

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

LibraryStatistics EmbeddedLibrary::statistics() {
    const korvane::LibraryCounts counts = korvane::libraryCounts(_library);
    return {counts.tracks, counts.playlists, counts.missingFiles, _tasks.isSuppressed()};
}

void EmbeddedLibrary::forEachTrack(const std::function<bool(const TrackSummary&)>& callback) {
    korvane::listTracks(
        _library, [&](const korvane::ListedTrack& track) { return callback(summaryOf(track)); });
}

void EmbeddedLibrary::forEachPlaylist(const std::function<bool(const PlaylistSummary&)>& callback) {
    korvane::listPlaylists(_library, [&](const korvane::ListedPlaylist& playlist) {
        return callback(summaryOf(playlist));
    });
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
