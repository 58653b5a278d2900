// One run's wish to end: asked for on any thread, noticed by whoever waits or works.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "platform/errors.h"

namespace orlith {

class Cancellation {
public:
    // The first reason stays.
    void cancel(const platform::Error& reason) {
        const std::scoped_lock lock(_mutex);
        if (_reason)
            return;
        _reason = reason;
        _changed.notify_all();
        if (_action)
            _action(reason);
    }
    platform::OptionalError reason() {
        const std::scoped_lock lock(_mutex);
        return _reason;
    }
    // Called with the reason, at once when there is one. After it was cleared (null) it is neither
    // running nor called again.
    void setAction(std::function<void(const platform::Error&)> action) {
        const std::scoped_lock lock(_mutex);
        _action = std::move(action);
        if (_reason && _action)
            _action(*_reason);
    }
    // Until `condition` holds after a wake-up, or so long; false when cancelled.
    bool waitFor(std::chrono::milliseconds patience, const std::function<bool()>& condition) {
        std::unique_lock lock(_mutex);
        _changed.wait_for(lock, patience, [&] { return _reason || condition(); });
        return !_reason;
    }
    // After a change of what a condition looks at.
    void wake() {
        const std::scoped_lock lock(_mutex);
        _changed.notify_all();
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    platform::OptionalError _reason;                      // guarded by _mutex
    std::function<void(const platform::Error&)> _action;  // guarded by _mutex
};

}  // namespace orlith
