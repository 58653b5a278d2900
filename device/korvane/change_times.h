// Purpose: the moments that changes carry, in milliseconds since 1970. Whoever changes something
//          gives it a moment later than the one that it had, whatever the clock says, so that the
//          change wins everywhere.
#pragma once

#include <algorithm>
#include <cstdint>

namespace korvane {

// The end of the year 9999: nothing is later, whatever a record says.
inline constexpr std::int64_t LatestMs = 253'402'300'799'999;

constexpr std::int64_t boundedMs(std::int64_t milliseconds) {
    return std::clamp<std::int64_t>(milliseconds, 0, LatestMs);
}

// Now, or directly after what was there.
constexpr std::int64_t changeMs(std::int64_t nowMs, std::int64_t heldMs) {
    return boundedMs(std::max(nowMs, boundedMs(heldMs) + 1));
}

}  // namespace korvane
