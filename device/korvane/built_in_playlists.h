// Purpose: the smart playlists that the library makes by itself, until a host brings its own.
// Calling thread: that of the connection, inside a write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

// The column container.built_in_kind. A host's playlist of a kind takes the place of the built-in
// one; neither is told to other devices, which have their own.
enum class BuiltInKind : int {
    None = 0,
    RecentlyAdded = 1,
    MostPlayed = 2,
    TopRated = 3,
    RecentlyPlayed = 4,
    NotPlayedYet = 5,
};

// Makes those that the library has not had yet, unless it has made them or they have gone before:
// the two database properties say so.
void createBuiltInPlaylists(common::Database& database, std::int64_t nowMs);
std::vector<std::int64_t> autoCreatedPlaylists(common::Database& database);
// Those among `pids` that the library made; they are not made again. Not told to other devices.
void deleteAutoCreatedPlaylists(common::Database& database, std::span<const std::int64_t> pids);

}  // namespace korvane
