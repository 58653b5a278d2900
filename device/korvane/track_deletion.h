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

struct SqlCondition;

// Who is told of a deletion.
class DeletionReach {
public:
    // Other devices: the owner's or the host's plan removed the entry then (milliseconds since
    // 1970). Incarnations born until then go everywhere.
    static DeletionReach everywhere(std::int64_t deletedMs) { return {true, deletedMs}; }
    // Nobody: a claim was lost.
    static DeletionReach here() { return {false, 0}; }

    bool isTold() const { return _isTold; }
    std::int64_t deletedMs() const { return _deletedMs; }

private:
    DeletionReach(bool isTold, std::int64_t deletedMs) : _isTold(isTold), _deletedMs(deletedMs) {}

    bool _isTold;
    std::int64_t _deletedMs;
};

// False when there is no such track. What the track gets back when it returns is kept under its
// global id; its file goes with the next sweep.
bool deleteTrack(common::Database& database, std::int64_t trackPID, DeletionReach reach);
// As deleteTrack, here alone, for all tracks that meet a condition over trackTables().
void deleteTracksHere(common::Database& database, const SqlCondition& condition);
// Recommendation data go later than their tracks, which a reset takes away and brings again at
// once.
void forgetKenningOfDeletedTracks(common::Database& database);
// As deleteTrack for a playlist.
bool deletePlaylist(common::Database& database, std::int64_t playlistPID, DeletionReach reach);

// Takes the sources of a mask (bits, see schema.h) off the tracks. One that has no source left and
// no other claim (marked for restore, bought, in the cloud) is deleted here.
void removeTrackSources(common::Database& database, std::int64_t mask,
                        std::span<const std::int64_t> trackPIDs);
// The same for playlists, which stay by their sources alone.
void removePlaylistSources(common::Database& database, std::int64_t mask,
                           std::span<const std::int64_t> playlistPIDs);
// The same for every track and playlist.
void removeSourcesFromAll(common::Database& database, std::int64_t mask);

}  // namespace korvane
