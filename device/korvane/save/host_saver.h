// Purpose: saves what the owner changed for the host to read: one file of tracks and one of
//          playlists a session.
// Calling thread: that of the read-only transaction in which the library calls it.
// Ownership: none.
// Failure: logged; what could not be saved leaves no file, and the library's mark stays where it
// is,
//          so that it is saved next time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "device/korvane/saver.h"

namespace device {
class RootedFileSystem;
}

namespace korvane {

// Preparing a session leaves this directory alone.
inline constexpr char SavedDirectory[] = "/var/mobile/Media/Tessel_Control/Sync/Saved/";

std::string savedTracksPath(std::uint32_t torvelID);
std::string savedPlaylistsPath(std::uint32_t torvelID);

class HostSaver final : public Saver {
public:
    void saveTrackMetadata(Library& library, std::int64_t sinceRevision,
                           std::uint32_t torvelID) override;
    void savePlaylists(Library& library, std::int64_t sinceRevision,
                       std::uint32_t torvelID) override;
};

// The revision up to which the last save has the owner's changes of this library: from the saved
// file, so it holds after a restart too. Absent when there is no whole save.
std::optional<std::int64_t> savedRevision(device::RootedFileSystem& files,
                                          const std::string& libraryUID);

}  // namespace korvane
