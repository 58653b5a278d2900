// Purpose: smart playlists after a change of one track, without asking all others where they
//          belong: the track moves into a list, out of it or within it.
// Calling thread: that of the connection, inside one write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <set>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

struct SmartRules;

class SmartRefill {
public:
    // Before the track changes or goes. `now` is seconds since 1970.
    SmartRefill(common::Database& database, std::int64_t trackPID, std::int64_t now);

    // After it. Every smart playlist is as fillSmartPlaylists would leave it, but for tracks that
    // time alone moves ("in the last days"): when filling is due, all are filled instead.
    void run();

private:
    struct Playlist;
    void refill(const Playlist& playlist);
    bool keepsItsPlace(const Playlist& playlist);

    common::Database& _database;
    const std::int64_t _trackPID;
    const std::int64_t _now;
    const bool _fillsAll;
    std::set<std::int64_t> _held;  // the playlists that had the track, by container_id
};

}  // namespace korvane
