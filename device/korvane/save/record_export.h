// Purpose: the library's tracks and playlists as "QORX" records.
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>

#include "common/sqlite/database.h"

namespace qorx {
class Playlist;
class Track;
}  // namespace qorx

namespace korvane {

class RecordExport {
public:
    explicit RecordExport(common::Database& database);

    // Fills the record, which is cleared first, with all that travels. False: there is no such
    // entry.
    bool track(std::int64_t pid, qorx::Track& record);
    bool playlist(std::int64_t pid, qorx::Playlist& record);

private:
    void plays(std::int64_t pid, qorx::Track& record);
    void items(std::int64_t containerID, qorx::Playlist& record);

    common::Query _track;
    common::Query _plays;
    common::Query _playlist;
    common::Query _items;
};

}  // namespace korvane
