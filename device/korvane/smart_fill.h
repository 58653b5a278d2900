// Purpose: filling smart playlists by their rules.
// Calling thread: that of the connection, inside a write transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

struct SmartRules;

// The tracks that the rules ask for, in order. `now` is seconds since 1970.
std::vector<std::int64_t> tracksMatchingRules(common::Database& database, const SmartRules& rules,
                                              std::int64_t now);

// Fills every smart playlist. Only entries that differ are written, and none gives a revision.
// Rules that cannot be read leave their playlist as it is.
void fillSmartPlaylists(common::Database& database, std::int64_t now);

// Makes a playlist's entries these tracks, writing only what differs.
void replaceEntries(common::Database& database, std::int64_t containerID,
                    const std::vector<std::int64_t>& trackPIDs);

}  // namespace korvane
