// Where a host's files for one session lie, and how large they may be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace orlith {

inline constexpr char SyncDirectory[] = "/var/mobile/Media/Tessel_Control/Sync/Media";
// The host's data for the import; it is there during one session only.
inline constexpr char HostDataPath[] = "/var/mobile/Media/Tessel_Control/Sync/Media/HostData.qorx";

inline constexpr std::size_t MostSessionFiles = 1000;
inline constexpr std::uint64_t LargestSettingsFile = 16 << 20;            // bytes
inline constexpr std::uint64_t LargestHostData = std::uint64_t{2} << 30;  // bytes

// Where a session's n-th file arrives before it is whole.
inline std::string partialSessionFilePath(std::size_t number) {
    return "/var/mobile/Media/Stagehold/Media/session-" + std::to_string(number);
}

}  // namespace orlith
