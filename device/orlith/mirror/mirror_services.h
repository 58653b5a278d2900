// What mirroring works on; all of it outlives the sessions.
#pragma once

#include <chrono>
#include <string>

#include "device/orlith/mirror/change_operations.h"
#include "device/orlith/mirror/download_progress.h"
#include "device/orlith/mirror/peer_library.h"
#include "device/orlith/session.h"

namespace orlith {

inline constexpr std::uint32_t PeerProtocolVersion = 1;

struct MirrorServices {
    SessionServices device;
    ORAssetClient& assets;
    ChangeOperations& changes;
    PeerLibrary& peers;
    DownloadProgress& downloads;
    std::string deviceName;  // for people
    // How long the plug-in may leave a request for an asset without an answer while nothing moves:
    // its own deadline is 30 s, and what has arrived is answered 5 s later.
    std::chrono::milliseconds assetPatience{40000};
};

}  // namespace orlith
