// Where a device's daemon listens, and how either end reaches that place.
//
// A socket's address holds 107 bytes of path, and a device directory may lie deeper than that. So
// neither end ever gives the kernel the path itself: both open the directory that holds the socket
// and name the socket through it, "/proc/self/fd/N/orlith.sock".
//
// Any thread. Failures are Errors of POSIXErrorDomain with a text in plain words.
#pragma once

#include <string>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace orlith::link {

// "<root>/var/run/orlith.sock"; `root` is the device directory on the real disk.
std::string socketPathOfDevice(const std::string& root);

// A blocking connection to the daemon's socket. Empty on failure: ENOENT and ECONNREFUSED mean that
// no daemon listens there.
common::UniqueFd connectToSocket(const std::string& path, platform::OptionalError* error);

// A listening socket, not blocking, that only this user can reach (mode 0600). What lies at `path`
// is replaced when it is a socket, so the caller must first have made sure that no other daemon
// uses it (DeviceLock); anything else is an error (EEXIST). The directory must exist.
common::UniqueFd listenOnSocket(const std::string& path, platform::OptionalError* error);

}  // namespace orlith::link
