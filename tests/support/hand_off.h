// What one side of the RPC library reads after a message was written before the message was sent.
// The library between them is invisible to the thread sanitizer, so both sides say it once more.
#pragma once

#include <atomic>

namespace test {

inline std::atomic<unsigned> handOffs{0};

// After a change that the other side reads once it has been told.
inline void handOver() {
    handOffs.fetch_add(1, std::memory_order_acq_rel);
}

// After a message, before what it tells of is read.
inline void takeOver() {
    handOffs.load(std::memory_order_acquire);
}

// Takes over at the start of a scope and hands over at its end, also when an exception leaves it.
class Turn {
public:
    Turn() { takeOver(); }
    ~Turn() { handOver(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
};

}  // namespace test
