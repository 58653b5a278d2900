// Puts a restore that is ready in place, before anything of the device is opened: what lies in the
// way is set aside, then each file takes its place. Whatever it was broken off by, the next start
// goes on with it.
//
// Thread: that of the daemon's start.
#pragma once

#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace orlith {

// Does nothing when no restore is ready. With an error the device must not be opened: a part of it
// may have been set aside already.
platform::OptionalError switchToRestored(device::RootedFileSystem& files);

}  // namespace orlith
