// Purpose: reads a file that should be small, whole.
// Thread: any.
// Failure: a reason in plain words.
#pragma once

#include <string>

namespace host {

// "" when `bytes` holds the file, else why not; `missing` tells that there is none. Only regular
// files of at most `limit` bytes are read.
std::string readSmallFile(const std::string& path, std::size_t limit, std::string& bytes,
                          bool* missing = nullptr);

}  // namespace host
