// Purpose: what the last syncs with a device could not do, over all folders of this user.
// Thread: any.
// Failure: a state that cannot be read tells nothing.
#pragma once

#include <string>
#include <vector>

#include "host/state/folder_state.h"

namespace host {

struct FolderFailures {
    std::string folder;             // absolute
    std::vector<FailedItem> items;  // that are still in the folder
};

// `stateDirectory` as StateStore::open takes it.
std::vector<FolderFailures> failuresOfDevice(const std::string& stateDirectory,
                                             const std::string& libraryUid);

}  // namespace host
