// Purpose: rebuilds what the host knows of a device from the device's own list, when the host's
// state was lost, is another's, or no longer fits (the device was restored, say).
// Thread: one at a time.
// Failure: none; a device track that no file matches is remembered as being only there.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/state/folder_state.h"

namespace host {

struct DeviceTrack {
    std::int64_t persistentId = 0;
    std::int64_t syncId = 0;
    std::int64_t globalId = 0;
    std::string title;
    std::string artist;
    std::string album;
    std::uint32_t discNumber = 0;
    std::uint32_t trackNumber = 0;
    std::uint32_t mediaType = 0;
    std::uint64_t size = 0;
    std::optional<ContentHash> contentHash;
    std::optional<std::string> hostPath;
    bool hasFile = false;
    bool fromHost = false;
};

struct DevicePlaylist {
    std::int64_t syncId = 0;
    std::int64_t globalId = 0;
    std::string name;
    bool fromHost = false;
};

struct AdoptionInput {
    const std::vector<DeviceTrack>& tracks;
    // As in ScanMergeInput.
    std::function<std::optional<ContentHash>(const FileStamp&)> hashFile;
};

// Replaces what `state` holds of the tracks of the device with this uid. Files that no device was
// sent yet take over the identity under which the device has them; call it after mergeScan.
DeviceState& adoptTracks(const std::string& libraryUid, const AdoptionInput& input,
                         FolderState& state);
// The same for playlists; call it after mergePlaylists.
void adoptPlaylists(const std::vector<DevicePlaylist>& playlists, FolderState& state,
                    DeviceState& device);

}  // namespace host
