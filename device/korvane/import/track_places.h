// Purpose: the places of new tracks among all album artists and albums, given before their rows are
//          written: a track that has none is found and placed again at the end of the transaction.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace common {
class Database;
}
namespace qorx {
class Track;
}

namespace korvane {

struct TrackPlace {
    std::int64_t albumArtistOrder = 0;
    std::int64_t albumOrder = 0;
};

// One for each track. They hold until the next call for other tracks: that may move all.
std::vector<TrackPlace> placesOf(common::Database& database,
                                 std::span<const qorx::Track* const> tracks);

}  // namespace korvane
