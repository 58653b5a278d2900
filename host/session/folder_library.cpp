#include "host/session/folder_library.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "host/plan/folder_digest.h"
#include "host/plan/playlist_merge.h"
#include "host/plan/scan_merge.h"
#include "host/scan/file_names.h"
#include "host/session/file_hashing.h"

namespace host {

namespace {

using platform::OptionalError;

platform::Error scanError(ScanErrorCode code, const std::string& folder, const char* what) {
    return platform::Error(ScanErrorDomain, code, displayText(folder) + ": " + what);
}

bool isUpload(std::string_view path) {
    return path.starts_with(UploadFolderName) && path.substr(UploadFolderName.size(), 1) == "/";
}

}  // namespace

FolderLibrary::FolderLibrary(Progress& progress, std::stop_token stop)
    : _progress(progress), _stop(std::move(stop)) {}

FolderLibrary::~FolderLibrary() = default;

OptionalError FolderLibrary::open(const std::string& folder) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(folder.c_str(), nullptr),
                                                           &std::free);
    if (!real)
        return scanError(errno == ENOENT ? ScanErrorFolderNotFound : ScanErrorFolderUnreadable,
                         folder, std::strerror(errno));
    struct stat found {};
    if (::stat(real.get(), &found) != 0)
        return scanError(ScanErrorFolderUnreadable, folder, std::strerror(errno));
    if (!S_ISDIR(found.st_mode))
        return scanError(ScanErrorNotAFolder, folder, "this is no folder");
    _folder = real.get();
    return _store.open(defaultStateDirectory(), _folder, _state, _ids);
}

OptionalError FolderLibrary::scan() {
    ScanOptions options;
    options.folder = _folder;
    options.stop = _stop;
    options.known = [this](const FileStamp& stamp) -> const MediaFile* {
        const KnownFile* known = _state.fileAt(stamp.path);
        return known != nullptr && !known->knownFromDeviceOnly ? &known->media : nullptr;
    };
    options.progress = [this](const ScanProgress& progress) {
        _progress.phase(progress.walking ? "looking through the folder" : "reading media files");
        if (progress.walking)
            _progress.count(progress.filesSeen, 0);
        else
            _progress.count(progress.filesRead, progress.filesToRead);
    };
    if (auto error = scanFolder(options, _workers, _scan))
        return error;
    ScanMergeInput input;
    input.now = std::time(nullptr);
    input.hashFile = [this](const FileStamp& stamp) { return hashOf(stamp); };
    mergeScan(_scan, _state, _ids, input);
    return std::nullopt;
}

std::optional<ContentHash> FolderLibrary::hashOf(const FileStamp& stamp) const {
    return hashFile(_folder, stamp).hash;
}

void FolderLibrary::adopt(const std::string& libraryUid, const std::vector<DeviceTrack>& tracks,
                          const std::vector<DevicePlaylist>& playlists) {
    AdoptionInput input{tracks, [this](const FileStamp& stamp) { return hashOf(stamp); }};
    DeviceState& device = adoptTracks(libraryUid, input, _state);
    readPlaylists();
    adoptPlaylists(playlists, _state, device);
}

void FolderLibrary::readPlaylists() {
    if (_hasPlaylists)
        return;
    _progress.phase("reading playlists");
    const FileIndex index(_folder, _scan.files);
    for (const FileStamp& stamp : _scan.playlists)
        if (!isUpload(stamp.path))
            _playlists.push_back(readPlaylist(_folder, stamp, index, _scan.files));
    mergePlaylists(_playlists, _scan.files, _state, _ids);
    _hasPlaylists = true;
}

OptionalError FolderLibrary::makeMaterials(bool withRecommendations) {
    _progress.phase("preparing pictures");
    const MaterialInput input{
        _state, _folder, _scan.images, defaultCacheDirectory() + "/artwork", withRecommendations,
        _stop};
    if (auto error = host::makeMaterials(input, _workers, _materials))
        return error;
    _hasMaterials = true;
    return std::nullopt;
}

OptionalError FolderLibrary::hashNewFiles(bool& someFailed) {
    someFailed = false;
    std::vector<KnownFile*> files;
    std::vector<const FileStamp*> stamps;
    for (KnownFile& file : _state.files) {
        if (file.presence != Presence::Present || file.contentHash)
            continue;
        files.push_back(&file);
        stamps.push_back(&file.media.stamp);
    }
    if (files.empty())
        return std::nullopt;
    _progress.phase("hashing new files");
    const auto total = static_cast<std::int64_t>(files.size());
    const std::vector<HashedFile> hashed = hashFiles(
        _folder, stamps,
        [&](std::size_t done) { _progress.count(static_cast<std::int64_t>(done), total); }, _stop);
    if (_stop.stop_requested())
        return platform::Error(ScanErrorDomain, ScanErrorCancelled, "interrupted");
    for (std::size_t i = 0; i < files.size(); ++i) {
        files[i]->contentHash = hashed[i].hash;
        files[i]->changed = true;
        if (hashed[i].hash)
            continue;
        files[i]->presence = Presence::Unreadable;
        someFailed = true;
        _hashFailures.push_back({files[i]->media.stamp.path, hashed[i].failure});
    }
    return std::nullopt;
}

ContentHash FolderLibrary::digest(bool withRecommendations) const {
    return folderDigest(_state, _scan.playlists, _scan.images, withRecommendations);
}

std::vector<ItemFailure> FolderLibrary::failures() const {
    std::vector<ItemFailure> failures = _hashFailures;
    for (const MediaFile& file : _scan.files)
        if (!file.readable() && !isUpload(file.stamp.path))
            failures.push_back({file.stamp.path, file.reason});
    for (const SkippedPath& skipped : _scan.skipped)
        failures.push_back({skipped.path, skipped.reason});
    for (const Playlist& playlist : _playlists) {
        if (!playlist.readable())
            failures.push_back({playlist.stamp.path, playlist.reason, ItemFailure::Kind::Playlist});
        for (const MissingEntry& entry : playlist.missing)
            failures.push_back({playlist.stamp.path,
                                "entry " + std::to_string(entry.position) + ", \"" +
                                    displayText(entry.text) + "\": " + entry.reason,
                                ItemFailure::Kind::Playlist});
    }
    failures.insert(failures.end(), _materials.failures.begin(), _materials.failures.end());
    return failures;
}

}  // namespace host
