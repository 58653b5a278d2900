// Time limits of tests that guard against an algorithm that is far too slow.
#pragma once

#include <chrono>

namespace test {

// More under a sanitizer, which slows everything down several times.
inline std::chrono::milliseconds timeLimit(std::chrono::milliseconds limit) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    return limit * 10;
#else
    return limit;
#endif
}

}  // namespace test
