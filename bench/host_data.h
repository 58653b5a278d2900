// Purpose: the data of a host with so many tracks, as the device receives them.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

inline constexpr std::int64_t TracksPerAlbum = 12;
inline constexpr std::int64_t FileSize = 4096;  // bytes of each track's media file

std::string artworkTokenOf(std::int64_t album);
// Tracks with random ids, written to a path of this machine.
void writeHostData(const std::string& realPath, std::int64_t tracks);

}  // namespace bench
