// Purpose: how tracks leave the library.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>

namespace common {
class Database;
}

namespace korvane {

enum class DeletionReach {
    Everywhere,  // the owner's or the host's plan: told to other devices
    Here,        // a claim that was lost: nobody else is told
};

// False when there is no such track. What the track gets back when it returns is kept under its
// global id; its file goes with the next sweep.
bool deleteTrack(common::Database& database, std::int64_t trackPID, DeletionReach reach);
// As deleteTrack for a playlist.
bool deletePlaylist(common::Database& database, std::int64_t playlistPID, DeletionReach reach);

// Takes the sources of a mask (bits, see schema.h) off the tracks. One that has no source left and
// no other claim (marked for restore, bought, in the cloud) is deleted here.
void removeTrackSources(common::Database& database, std::int64_t mask,
                        std::span<const std::int64_t> trackPIDs);
// The same for every track and playlist.
void removeSourcesFromAll(common::Database& database, std::int64_t mask);

}  // namespace korvane
