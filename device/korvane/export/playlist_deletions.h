// Purpose: deletions of playlists, one to an export. An exchange of changes tells of the first
//          deleted playlist only; whoever exchanges repeats it from just below each other one.
// Calling thread: any.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace korvane {

class Library;

struct PlaylistDeletion {
    std::int64_t persistentID = 0;
    std::int64_t revision = 0;

    bool operator==(const PlaylistDeletion&) const = default;
};

// The deletions after a revision that exports tell of, in the order of their revisions. Where there
// are several, none of them is older than a change of another playlist: those that are get new
// revisions above everything else, so that an exchange from just below one of them carries that
// deletion and those after it alone. Asked again, nothing changes, for whatever peer; so devices
// that follow each other come to rest. Absent when the database fails, which is logged.
std::optional<std::vector<PlaylistDeletion>> lineUpPlaylistDeletions(Library& library,
                                                                     std::int64_t afterRevision);

}  // namespace korvane
