// Rows of the library as the link carries them.
#pragma once

#include <functional>

#include "device/korvane/listing.h"
#include "link/orlith.pb.h"

namespace orlith {

void fillRow(const korvane::ListedTrack& track, link::TrackRow& row);

// A playlist may be larger than a message: then it comes as several rows of the same persistent
// id, one after another, each with the next of its tracks.
void splitPlaylist(const korvane::ListedPlaylist& playlist,
                   const std::function<void(const link::PlaylistRow&)>& callback);

}  // namespace orlith
