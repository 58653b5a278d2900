// Purpose: bounds the counts of plays and skips.
#pragma once

#include <cstdint>

namespace korvane {

// The largest count of one origin: the sum over all that a track can have stays within 63 bits.
inline constexpr std::int64_t LargestPlayCount = std::int64_t{1} << 40;

}  // namespace korvane
