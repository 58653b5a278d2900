#include "host/progress/transfer_rate.h"

#include <cmath>

namespace host {

namespace {

double secondsOf(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

void TransferRate::update(std::uint64_t bytes, Time now) {
    _bytes = bytes;
    const auto length = now - _sampleStart;
    if (length < SampleLength)
        return;
    const double sample = static_cast<double>(bytes - _sampleBytes) / secondsOf(length);
    if (_rate) {
        const double kept = std::exp2(-secondsOf(length) / secondsOf(HalfLife));
        _rate = *_rate * kept + sample * (1 - kept);
    } else {
        _rate = sample;
    }
    _sampleStart = now;
    _sampleBytes = bytes;
}

double TransferRate::average(Time now) const {
    const double seconds = secondsOf(now - _start);
    return seconds > 0 ? static_cast<double>(_bytes) / seconds : 0;
}

std::optional<std::chrono::seconds> TransferRate::timeLeft(std::uint64_t remaining) const {
    constexpr double longest = 100 * 3600;
    if (!_rate || *_rate <= 0)
        return std::nullopt;
    const double seconds = std::ceil(static_cast<double>(remaining) / *_rate);
    if (seconds > longest)
        return std::nullopt;
    return std::chrono::seconds(static_cast<std::int64_t>(seconds));
}

}  // namespace host
