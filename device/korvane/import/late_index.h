// Purpose: the index on global ids, which are random: an import that fills an empty library builds
//          it in one go, when all rows are there, instead of finding a place for each.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError; a transaction that is rolled back leaves the index as it was.
#pragma once

#include <cstddef>
#include <string>

namespace common {
class Database;
}

namespace korvane {

class LateIndex {
public:
    // Takes the index away when so many new tracks are worth it. Until it is built, nobody may look
    // for a track by its global id.
    LateIndex(common::Database& database, bool hadNoTracks, std::size_t newTracks);
    void build();

private:
    common::Database& _database;
    std::string _definition;  // "" when the index stayed
};

}  // namespace korvane
