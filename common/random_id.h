// Ids that are never guessed or met twice.
#pragma once

#include <cstdint>

namespace common {

// Random, 1 to 2^63 - 1, from the system's source of randomness. Any thread.
std::int64_t randomPositiveId();

}  // namespace common
