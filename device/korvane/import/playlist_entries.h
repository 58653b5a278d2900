// Purpose: the entries of a plain playlist in their order.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

// A track of ours, or the ids that it came with.
struct PlaylistEntry {
    std::int64_t itemPID = 0;
    std::int64_t foreignPID = 0;
    std::int64_t foreignSyncID = 0;
    std::int64_t foreignGlobalID = 0;
    bool operator==(const PlaylistEntry&) const = default;
};

std::vector<PlaylistEntry> playlistEntries(common::Database& database, std::int64_t containerID);

// What the playlist is to hold when the one who brings `entries` cannot name every track: those of
// tracks without that source stay, each behind the entry that it stands behind now.
std::vector<PlaylistEntry> withEntriesOfOthers(common::Database& database, std::int64_t containerID,
                                               std::int64_t sourceBit,
                                               std::vector<PlaylistEntry> entries);

// Leaves the entries before the first difference alone. Whether they were others before;
// `aboutToChange` is called before anything is written.
bool writePlaylistEntries(common::Database& database, std::int64_t containerID,
                          const std::vector<PlaylistEntry>& entries,
                          const std::function<void()>& aboutToChange);

// Entries that came before their tracks, or outlived them, find them by global id; those that have
// no other id, by sync id.
void resolveWaitingEntries(common::Database& database);
// The same by the ids that a peer has for them.
void resolveEntriesOfPeer(common::Database& database, std::int64_t peerID);

}  // namespace korvane
