// Limits of processor time of tests that guard against an algorithm that is far too slow.
#pragma once

#include <time.h>

#include <chrono>

namespace test {

// Processor time of this process: what else the machine does is left out.
inline std::chrono::nanoseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// More under a sanitizer, which slows everything down several times.
inline std::chrono::milliseconds timeLimit(std::chrono::milliseconds limit) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    return limit * 10;
#else
    return limit;
#endif
}

}  // namespace test
