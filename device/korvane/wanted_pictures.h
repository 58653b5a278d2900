// Purpose: which pictures the library's tracks ask for.
// Calling thread: that of the connection.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

// The relative path of every picture that a track can ask for.
std::unordered_set<std::string> wantedPictures(common::Database& database);

// The relative paths of the covers that a track asks for.
std::vector<std::string> coversOf(common::Database& database, std::int64_t persistentID);

// Takes the recorded pictures that nobody asks for out of the database, inside a write transaction,
// and tells their relative paths.
std::vector<std::string> forgetOrphanedArtwork(common::Database& database);

}  // namespace korvane
