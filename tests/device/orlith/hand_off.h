// What a test reads after an answer was written before the answer was sent. The RPC library between
// them is invisible to the thread sanitizer, so the doubles and the test say it once more.
#pragma once

#include <atomic>

namespace orlith::testing {

inline std::atomic<unsigned> handOffs{0};

// On the device's threads, after a change that tests read.
inline void handOver() {
    handOffs.fetch_add(1, std::memory_order_acq_rel);
}

// At the end of a scope, also when it is left by an exception.
struct HandOverAtEnd {
    ~HandOverAtEnd() { handOver(); }
};

// In a test, after an answer.
inline void takeOver() {
    handOffs.load(std::memory_order_acquire);
}

}  // namespace orlith::testing
