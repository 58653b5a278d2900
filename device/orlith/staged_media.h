// Media files that a reset sync moves aside before its import, and their way back when it failed.
//
// Thread: that of the session or of the start; one at a time.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "device/system/rooted_file_system.h"

namespace orlith {

// Moves those of the files (absolute device paths) that lie in one of the two trees which can be
// put back into "Stagehold/tmp", under the same relative path; directories stay. The number moved.
std::size_t moveMediaAside(device::RootedFileSystem& files, const std::vector<std::string>& paths);

// Puts back what lies there and has nothing in its place and removes the rest; "Stagehold/tmp"
// exists afterwards. A file that could not be put back stays for the next attempt. The number put
// back.
std::size_t putMediaBack(device::RootedFileSystem& files);

}  // namespace orlith
