#include "host/state/folder_state.h"

#include <algorithm>

namespace host {

KnownFile& FolderState::add(KnownFile file) {
    const std::size_t position = files.size();
    // What lies in the folder is found by its path before what only a device has.
    if (file.knownFromDeviceOnly)
        byPath.try_emplace(file.media.stamp.path, position);
    else
        byPath[file.media.stamp.path] = position;
    bySyncId[file.syncId] = position;
    byGlobalId[file.globalId] = position;
    files.push_back(std::move(file));
    return files.back();
}

KnownFile* FolderState::fileAt(const std::string& path) {
    const auto found = byPath.find(path);
    return found == byPath.end() ? nullptr : &files[found->second];
}

KnownFile* FolderState::fileWithSyncId(std::int64_t syncId) {
    const auto found = bySyncId.find(syncId);
    return found == bySyncId.end() ? nullptr : &files[found->second];
}

const KnownFile* FolderState::fileWithSyncId(std::int64_t syncId) const {
    const auto found = bySyncId.find(syncId);
    return found == bySyncId.end() ? nullptr : &files[found->second];
}

KnownFile* FolderState::fileWithGlobalId(std::int64_t globalId) {
    const auto found = byGlobalId.find(globalId);
    return found == byGlobalId.end() ? nullptr : &files[found->second];
}

KnownPlaylist* FolderState::playlistWithSyncId(std::int64_t syncId) {
    const auto found = std::ranges::find(playlists, syncId, &KnownPlaylist::syncId);
    return found == playlists.end() ? nullptr : &*found;
}

KnownPlaylist* FolderState::playlistWithGlobalId(std::int64_t globalId) {
    const auto found = std::ranges::find(playlists, globalId, &KnownPlaylist::globalId);
    return found == playlists.end() ? nullptr : &*found;
}

void FolderState::move(KnownFile& file, const std::string& path) {
    const auto position = static_cast<std::size_t>(&file - files.data());
    const auto old = byPath.find(file.media.stamp.path);
    if (old != byPath.end() && old->second == position)
        byPath.erase(old);
    byPath[path] = position;
    file.media.stamp.path = path;
}

}  // namespace host
