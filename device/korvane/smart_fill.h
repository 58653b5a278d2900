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

// The same of some tracks alone.
std::vector<std::int64_t> tracksMatchingRulesAmong(common::Database& database,
                                                   const SmartRules& rules, std::int64_t now,
                                                   const std::vector<std::int64_t>& trackPIDs);

// Fills every smart playlist. Only entries that differ are written, and none gives a revision.
// Rules that cannot be read leave their playlist as it is.
void fillSmartPlaylists(common::Database& database, std::int64_t now);

// Whether the smart playlists must be filled as a whole: something has changed since that left them
// as they were, or an hour has passed, in which tracks come and go by rules about time.
bool isFillingDue(common::Database& database, std::int64_t now);
// Whether nothing has changed since they were filled.
bool areSmartPlaylistsCurrent(common::Database& database);
// They are, after a change that moves no track in them.
void keepSmartPlaylistsCurrent(common::Database& database);

// Makes a playlist's entries these tracks, writing only what differs.
void replaceEntries(common::Database& database, std::int64_t containerID,
                    const std::vector<std::int64_t>& trackPIDs);

}  // namespace korvane
