// Which device this is, whatever becomes of its library: a backup names the device that it is of,
// and a restored library gets another uid.
//
// Any thread, one at a time.
#pragma once

#include <string>

#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace orlith {

// Made when there is none. Empty, with an error, when it cannot be kept.
std::string deviceIdentity(device::RootedFileSystem& files, platform::OptionalError& error);
// "" when there is none.
std::string knownDeviceIdentity(device::RootedFileSystem& files);
platform::OptionalError setDeviceIdentity(device::RootedFileSystem& files,
                                          const std::string& identity);

}  // namespace orlith
