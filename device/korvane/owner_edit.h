// Purpose: what every edit of the owner's does: one transaction, refusals in plain words.
// Calling thread: any.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/errors.h"

namespace common {
class Database;
}

namespace korvane {

class Library;

// Answers with what is wrong, and then nothing is changed.
using OwnerEdit = std::function<platform::OptionalError(common::Database&)>;

platform::Error refusedEdit(const std::string& text);
platform::Error notFound(const std::string& text);

// The library's observers are told when something has changed, once it is committed.
platform::OptionalError editAsOwner(Library& library, const OwnerEdit& edit);
// Refused where there is no such track or playlist. After an edit of a track the smart playlists
// are filled again.
platform::OptionalError editTrackAsOwner(Library& library, std::int64_t trackPID,
                                         const OwnerEdit& edit);
platform::OptionalError editPlaylistAsOwner(Library& library, std::int64_t playlistPID,
                                            const OwnerEdit& edit);

// Whether it is UTF-8 without control characters, and short enough.
bool isPlainText(const std::string& text, std::size_t longest);

}  // namespace korvane
