// How many calls are being answered, and since when there are none.
//
// Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>

namespace orlith {

class CallCounter {
public:
    using Clock = std::chrono::steady_clock;

    class Call {
    public:
        explicit Call(CallCounter& counter) : _counter(counter) { _counter.change(1); }
        ~Call() { _counter.change(-1); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        CallCounter& _counter;
    };

    // The end of the last call (or the start); absent while one is being answered.
    std::optional<Clock::time_point> idleSince() {
        const std::scoped_lock lock(_mutex);
        return _calls == 0 ? std::optional(_lastEnd) : std::nullopt;
    }

private:
    void change(int by) {
        const std::scoped_lock lock(_mutex);
        _calls += by;
        _lastEnd = Clock::now();
    }

    std::mutex _mutex;
    int _calls = 0;                             // guarded by _mutex
    Clock::time_point _lastEnd = Clock::now();  // guarded by _mutex
};

}  // namespace orlith
