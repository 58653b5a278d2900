// Reading a picture's file into memory, bounded.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/errors.h"

namespace artwork {

// The whole of an open regular file, by pread. EFBIG beyond `limit` bytes, EINVAL for what is no
// regular file; errors are of POSIXErrorDomain.
std::optional<std::vector<std::uint8_t>> readWholeFile(int fd, std::uint64_t limit,
                                                       platform::OptionalError& error);

}  // namespace artwork
