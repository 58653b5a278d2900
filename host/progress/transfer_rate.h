// Purpose: how fast a transfer is now, and how long the rest takes at that speed.
// Thread: one at a time.
// Failure: none; what cannot be told yet is absent.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace host {

// An exponentially weighted rate: what happened within the last few seconds counts most, so that a
// stall or a faster stretch shows soon without the number jumping about.
class TransferRate {
public:
    using Time = std::chrono::steady_clock::time_point;

    // The time after which an observation's weight has fallen to a half.
    static constexpr std::chrono::milliseconds HalfLife{3000};
    // Observations are gathered over at least this long before they count as one.
    static constexpr std::chrono::milliseconds SampleLength{200};

    explicit TransferRate(Time start) : _start(start), _sampleStart(start) {}

    // `bytes` is the total so far; it never falls.
    void update(std::uint64_t bytes, Time now);
    // Bytes a second, now; absent before the first sample is full.
    std::optional<double> current() const { return _rate; }
    // Bytes a second over the whole transfer.
    double average(Time now) const;
    // Until `remaining` more bytes are through at the current rate. Absent when that is unknown or
    // more than a hundred hours.
    std::optional<std::chrono::seconds> timeLeft(std::uint64_t remaining) const;

private:
    Time _start;
    Time _sampleStart;
    std::uint64_t _sampleBytes = 0;  // total when the sample began
    std::uint64_t _bytes = 0;
    std::optional<double> _rate;
};

}  // namespace host
