// What the owner asks to be done to a playlist, with playlists and tracks named as people do.
//
// Any thread.
#pragma once

#include <string>

#include "platform/errors.h"

namespace korvane {
class Library;
}

namespace orlith {

namespace link {
class EditPlaylistRequest;
}

// All of it or nothing. `name` becomes the playlist's, as it is called afterwards.
platform::OptionalError editPlaylist(korvane::Library& library,
                                     const link::EditPlaylistRequest& request, std::string& name);

}  // namespace orlith
