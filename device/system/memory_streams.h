// Streams over bytes in memory.
//
// Each stream is used by one thread at a time.
#pragma once

#include <memory>

#include "platform/operating_system.h"

namespace device {

// Gives the bytes, which the stream keeps.
std::unique_ptr<platform::InputStream> makeMemoryInputStream(platform::Data bytes);

// Keeps what is written between open and close; writing outside of these is EBADF. What was kept
// can be taken at any time.
std::unique_ptr<platform::MemoryOutputStream> makeMemoryOutputStream();

}  // namespace device
