// Purpose: what the owner of the device does to the library: ratings, plays, bookmarks, playlists.
//          These are the owner's changes: they travel, and the next save tells the host.
// Calling thread: any.
// Failure: an error of LibraryErrorDomain (or the database's) says in plain words what is wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/errors.h"

namespace korvane {

class Library;

// A track as a person names it: a persistent id, a sync id, or an exact title that only one has.
struct FoundTrack {
    std::int64_t persistentID = 0;
    std::string title;
};
std::optional<FoundTrack> findTrack(Library& library, const std::string& name,
                                    platform::OptionalError& error);

// 0 to 5 stars; 20 points each.
platform::OptionalError rateTrack(Library& library, std::int64_t trackPID, std::uint32_t stars);
// Counted under this library's uid.
platform::OptionalError recordPlay(Library& library, std::int64_t trackPID);
platform::OptionalError recordSkip(Library& library, std::int64_t trackPID);
platform::OptionalError setBookmark(Library& library, std::int64_t trackPID,
                                    std::uint64_t milliseconds);

// The new playlist's persistent id; 0 with an error.
std::int64_t createPlaylist(Library& library, const std::string& name,
                            platform::OptionalError& error);
// At the end, in order. A smart playlist takes none.
platform::OptionalError addToPlaylist(Library& library, std::int64_t playlistPID,
                                      const std::vector<std::int64_t>& trackPIDs);
platform::OptionalError renamePlaylist(Library& library, std::int64_t playlistPID,
                                       const std::string& name);
// Told to other devices and the host.
platform::OptionalError removePlaylist(Library& library, std::int64_t playlistPID);

}  // namespace korvane
