// Purpose: carries what can still be read of a damaged library into a sound one: tracks with what
// their
//          owner did to them, playlists, what was deleted and what returns when it comes back,
//          other devices' names of entries, recommendation data. What the sound library has already
//          is joined with it, never replaced by something older.
// Calling thread: that of the sound library's connection, inside its write transaction.
// Failure: SqliteError from the sound one; damage of the other is passed over.
#pragma once

#include <cstddef>
#include <cstdint>

namespace common {
class Database;
}

namespace korvane {

struct CarriedOver {
    std::size_t tracks = 0;     // new in the sound library
    std::size_t joined = 0;     // that it had
    std::size_t playlists = 0;  // new
    std::size_t gaps = 0;       // places that could not be read
};

// `damaged` is open for reading. A track of which one row is left comes back with what that row
// says, the host's next sync adds the rest; a playlist that has lost its name gets one.
CarriedOver carryOver(common::Database& damaged, common::Database& sound, std::int64_t nowMs);

}  // namespace korvane
