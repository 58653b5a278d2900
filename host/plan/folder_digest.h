// Purpose: one number for all that a folder would tell a device, so that a run with nothing to do
// sees that at once.
// Thread: any.
// Failure: none.
#pragma once

#include <vector>

#include "host/scan/media_file.h"
#include "host/state/folder_state.h"

namespace host {

// Over the files as merged by mergeScan, and the playlists and images of the scan, of which time
// and size stand for the contents.
ContentHash folderDigest(const FolderState& state, const std::vector<FileStamp>& playlists,
                         const std::vector<FileStamp>& images, bool withRecommendations);

}  // namespace host
