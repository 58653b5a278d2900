// Putting right what an interrupted session left behind: at the daemon's start, and before a
// session begins.
//
// Thread: one that no session shares.
#pragma once

#include "device/orlith/library_access.h"
#include "device/orlith/notices.h"
#include "device/orlith/staging_area.h"
#include "device/system/rooted_file_system.h"

namespace orlith {

// Puts back media that a reset sync had moved aside, then removes host data and staged files that
// no session will take. Files that were cut off stay, for their transfer goes on.
void recoverLeftovers(device::RootedFileSystem& files, StagingArea& staging, LibraryAccess& library,
                      Notices& notices);

}  // namespace orlith
