// Purpose: takes what a device saved of its owner's changes - ratings, counts, bookmarks, removals
// and playlists - into the folder's state, and says in words what changed.
// Thread: one at a time.
// Failure: a stream that is not whole is refused as a whole, and the state stays as it was.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/state/folder_state.h"
#include "host/state/identity_source.h"
#include "platform/errors.h"

namespace host {

struct OwnerChanges {
    std::size_t records = 0;         // that the device saved, whether or not they were news
    std::vector<std::string> shown;  // "rating of "Title" is now 4 stars", ...
};

// `stream` is a whole "QORX" stream; an empty one holds nothing. What the device itself holds
// afterwards is noted in `device`, so that it is not sent back.
platform::OptionalError mergeOwnerChanges(std::string_view stream, FolderState& state,
                                          DeviceState& device, IdentitySource& ids,
                                          OwnerChanges& changes);

}  // namespace host
