// Purpose: writes what changed here for the host of a session; implemented beside the library.
// Calling thread: that of the read-only transaction in which the library calls it.
// Failure: absorbed and logged by the implementation; a save that fails is made again next time.
#pragma once

#include <cstdint>

namespace korvane {

class Library;

class Saver {
public:
    virtual ~Saver() = default;
    // What changed after the revision (0: everything). Writes no database row.
    virtual void saveTrackMetadata(Library& library, std::int64_t sinceRevision,
                                   std::uint32_t torvelID) = 0;
    virtual void savePlaylists(Library& library, std::int64_t sinceRevision,
                               std::uint32_t torvelID) = 0;
};

}  // namespace korvane
