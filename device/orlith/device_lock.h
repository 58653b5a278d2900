// One daemon per device directory.
//
// Thread: that of the daemon's start. The kernel gives the lock back when the process ends, however
// it ends, so none is ever stale.
#pragma once

#include <string>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace orlith {

class DeviceLock {
public:
    // Takes the lock file `path`, whose directory must exist. When another process has it, the
    // error (EWOULDBLOCK) names that process.
    platform::OptionalError acquire(const std::string& path);

private:
    common::UniqueFd _file;
};

}  // namespace orlith
