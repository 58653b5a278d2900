// Purpose: what the owner of the device does to the library: ratings, plays, bookmarks, fields of
//          tracks, playlists. These are the owner's changes: they travel, and the next save tells
//          the host. Each call is one transaction.
// Calling thread: any.
// Failure: an error of LibraryErrorDomain (or the database's) says in plain words what is wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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
// As rateTrack, from 0 to 100.
platform::OptionalError rateTrackInPoints(Library& library, std::int64_t trackPID,
                                          std::int64_t points);
// Counted under this library's uid.
platform::OptionalError recordPlay(Library& library, std::int64_t trackPID);
platform::OptionalError recordSkip(Library& library, std::int64_t trackPID);
platform::OptionalError setBookmark(Library& library, std::int64_t trackPID,
                                    std::uint64_t milliseconds);

// --- owner_fields.cpp

// A field of a track by name ("title", "album-artist"; case and '-', '_', ' ' make no difference)
// and its new value as text: words up to 4,096 bytes (comment and description 65,536), whole
// numbers, "yes" or "no". An empty value takes the field's away.
struct FieldEdit {
    std::string field;
    std::string value;
};
// All of them or none. A field that is not known is refused by its name.
platform::OptionalError setTrackFields(Library& library, std::int64_t trackPID,
                                       std::span<const FieldEdit> edits);
// The names of the fields that can be set.
std::vector<std::string_view> editableTrackFields();
// Told to other devices and the host; what the track gets back when it returns is kept.
platform::OptionalError deleteTrackAsOwner(Library& library, std::int64_t trackPID);

// --- owner_playlists.cpp

// A playlist as a person names it: a persistent id, or an exact name that only one has.
struct FoundPlaylist {
    std::int64_t persistentID = 0;
    std::string name;
};
std::optional<FoundPlaylist> findPlaylist(Library& library, const std::string& name,
                                          platform::OptionalError& error);

// The new playlist's persistent id; 0 with an error.
std::int64_t createPlaylist(Library& library, const std::string& name,
                            platform::OptionalError& error,
                            const std::vector<std::int64_t>& trackPIDs = {});
// A smart playlist, filled by its rules from now on (smart_language.h says how they are written).
std::int64_t createSmartPlaylist(Library& library, const std::string& name,
                                 const std::string& rules, const std::string& limit,
                                 platform::OptionalError& error);
platform::OptionalError renamePlaylist(Library& library, std::int64_t playlistPID,
                                       const std::string& name);
// Told to other devices and the host.
platform::OptionalError removePlaylist(Library& library, std::int64_t playlistPID);

// A smart playlist is filled by its rules: the following refuse it. Places count the tracks from 0,
// as listPlaylists lists them; entries whose track is not here stay where they are.
// In order, the first at `place`, which may be one after the last; without it at the end.
platform::OptionalError addToPlaylist(Library& library, std::int64_t playlistPID,
                                      const std::vector<std::int64_t>& trackPIDs,
                                      std::optional<std::size_t> place = std::nullopt);
platform::OptionalError removeFromPlaylist(Library& library, std::int64_t playlistPID,
                                           std::size_t place);
// Each as often as it stands there; refused when one does not.
platform::OptionalError removeTracksFromPlaylist(Library& library, std::int64_t playlistPID,
                                                 const std::vector<std::int64_t>& trackPIDs);
// Afterwards the track stands at the place `to`.
platform::OptionalError moveInPlaylist(Library& library, std::int64_t playlistPID, std::size_t from,
                                       std::size_t to);

}  // namespace korvane
