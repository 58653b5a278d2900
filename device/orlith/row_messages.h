// Rows of the library as the link carries them.
#pragma once

#include <functional>

#include "device/orlith/library_access.h"
#include "link/orlith.pb.h"

namespace orlith {

void fillRow(const TrackSummary& track, link::TrackRow& row);

// A playlist may be larger than a message: then it comes as several rows of the same persistent
// id, one after another, each with the next of its tracks.
void splitPlaylist(const PlaylistSummary& playlist,
                   const std::function<void(const link::PlaylistRow&)>& callback);

}  // namespace orlith
