// Purpose: recognises the playlists of a folder among the known ones.
// Thread: one at a time.
// Failure: none.
#pragma once

#include <vector>

#include "host/playlists/playlists.h"
#include "host/scan/media_file.h"
#include "host/state/folder_state.h"
#include "host/state/identity_source.h"

namespace host {

// Brings `state.playlists` up to date; `files` are the scanned ones that the playlists' items name
// by place. An unreadable playlist stays as it was. Call it after mergeScan.
void mergePlaylists(const std::vector<Playlist>& playlists, const std::vector<MediaFile>& files,
                    FolderState& state, IdentitySource& ids);

}  // namespace host
