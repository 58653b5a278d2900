// The last step of a restore, at the daemon's start: the plug-in reconciles the library that came
// back, and what nobody in it knows is set aside.
//
// Thread: that of the daemon's start.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "device/korvane/activity_lock.h"
#include "platform/errors.h"
#include "platform/store_downloads.h"
#include "platform/sync_daemon.h"

namespace device {
class RootedFileSystem;
}
namespace korvane {
class Library;
}

namespace orlith {

struct FinishedRestore {
    platform::OptionalError error;  // the next start of the daemon tries again
    std::uint64_t tracks = 0;       // in the library now
    std::uint64_t waiting = 0;      // of those, without their file
    std::uint64_t fetched = 0;      // of those that wait, with an address to be fetched from
    std::uint64_t removed = 0;      // tracks that left the library
    std::uint64_t playlists = 0;
    std::string libraryUID;
    std::string kept;  // where the library as it was lies, a device path
};

// All of it outlives the call.
struct RestoreFinishParts {
    ORClient& client;
    device::RootedFileSystem& files;
    korvane::Library& library;
    korvane::ActivityLock& activities;
    std::shared_ptr<VDDownloadFileManifest> manifest;
};

// Absent when there is no restore to finish.
std::optional<FinishedRestore> finishRestore(const RestoreFinishParts& parts);

}  // namespace orlith
