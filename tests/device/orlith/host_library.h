// What a host puts on a device, and a whole sync that does.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/device/orlith/daemon_process.h"

namespace orlith::testing {

struct HostPlaylist {
    int id = 0;
    std::vector<int> tracks;
};

// What a host puts on a device.
struct HostLibrary {
    int tracks = 0;
    std::size_t size = 300'000;  // of a media file, and its number
    std::set<int> withCovers;    // these have a cover, and two chapters with pictures
    std::vector<HostPlaylist> playlists;
    std::vector<int> removedPlaylists{};  // which the device had
    std::vector<int> removedTracks{};
    std::map<int, std::int64_t> syncIDs{};      // others have 1000 and their number
    std::map<int, std::uint32_t> mediaTypes{};  // others are music
};

// The bytes of a track's media file; the same at every call.
std::string bytesOf(const HostLibrary& library, int track);
// The library as a host sends it: sync ids from 1001 unless told otherwise, global ids from 2001,
// titles "Title 1" on.
std::string hostData(const HostLibrary& library);
// A host brings the entries and is cut off before the files.
void hostSyncWithoutFiles(DeviceProcess& device, const HostLibrary& library);
// A whole sync from a host.
void hostSync(DeviceProcess& device, const HostLibrary& library);

}  // namespace orlith::testing
