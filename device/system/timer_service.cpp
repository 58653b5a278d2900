#include "device/system/timer_service.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include <asio/steady_timer.hpp>

namespace device {
namespace {

using platform::Job;
using platform::Nanoseconds;
using platform::Never;
using Clock = std::chrono::steady_clock;

Clock::time_point pointOf(Nanoseconds time) {
    // Beyond any process's life, and safe to calculate with.
    constexpr Nanoseconds latest = INT64_MAX / 2;
    return Clock::time_point(
        std::chrono::nanoseconds(static_cast<std::int64_t>(std::min(time, latest))));
}

Nanoseconds saturatedSum(Nanoseconds a, Nanoseconds b) {
    return b > Never - a ? Never : a + b;
}

// The part of a timer that waiting handlers and queued firings refer to, weakly: once the timer is
// released nothing fires.
class TimerState : public std::enable_shared_from_this<TimerState> {
public:
    TimerState(std::shared_ptr<asio::io_context> context,
               std::shared_ptr<platform::WorkQueue> queue)
        : _context(std::move(context)), _queue(std::move(queue)), _timer(*_context) {}

    void setHandler(Job handler) {
        auto shared = std::make_shared<const Job>(std::move(handler));
        const std::lock_guard lock(_mutex);
        // The old handler is released when `shared` goes, after the lock.
        std::swap(_handler, shared);
    }

    void set(Nanoseconds start, Nanoseconds interval) {
        const std::lock_guard lock(_mutex);
        _start = start;
        _interval = interval;
        arm();
    }

    void resume() {
        const std::lock_guard lock(_mutex);
        if (std::exchange(_resumed, true))
            return;
        arm();
    }

    void cancel() {
        std::shared_ptr<const Job> released;
        const std::lock_guard lock(_mutex);
        ++_setting;
        _timer.cancel();
        std::swap(_handler, released);
    }

private:
    // With the lock held. What an earlier setting started comes to nothing.
    void arm() {
        const std::uint64_t setting = ++_setting;
        _timer.cancel();
        if (!_resumed || _start == Never)
            return;
        _timer.expires_at(pointOf(_start));
        _timer.async_wait([weak = weak_from_this(), setting](const std::error_code& cancelled) {
            if (const auto self = weak.lock(); self && !cancelled)
                self->due(setting);
        });
    }

    void due(std::uint64_t setting) {
        {
            const std::lock_guard lock(_mutex);
            if (setting != _setting)
                return;
        }
        _queue->async([weak = weak_from_this(), setting] {
            if (const auto self = weak.lock())
                self->fire(setting);
        });
    }

    void fire(std::uint64_t setting) {
        std::shared_ptr<const Job> handler;
        {
            const std::lock_guard lock(_mutex);
            if (setting != _setting)
                return;
            handler = _handler;
            _start = nextStart();
            arm();
        }
        if (handler && *handler)
            (*handler)();
    }

    // The next point of the rhythm that lies ahead: firings that were missed are merged. An
    // interval of 0 gives no rhythm.
    Nanoseconds nextStart() const {
        if (_interval == Never || _interval == 0)
            return Never;
        const Nanoseconds now = monotonicNow();
        const Nanoseconds missed = now > _start ? (now - _start) / _interval : 0;
        return saturatedSum(_start + missed * _interval, _interval);
    }

    const std::shared_ptr<asio::io_context> _context;
    const std::shared_ptr<platform::WorkQueue> _queue;
    std::mutex _mutex;  // protects what follows
    asio::steady_timer _timer;
    std::shared_ptr<const Job> _handler;
    Nanoseconds _start = Never;
    Nanoseconds _interval = Never;
    bool _resumed = false;
    std::uint64_t _setting = 0;  // which setting is in force
};

class PooledTimer final : public platform::TimerSource {
public:
    explicit PooledTimer(std::shared_ptr<TimerState> state) : _state(std::move(state)) {}
    ~PooledTimer() override { _state->cancel(); }

    void setEventHandler(Job handler) override { _state->setHandler(std::move(handler)); }
    // Fires at `start`, so within any leeway.
    void setTimer(Nanoseconds start, Nanoseconds interval, Nanoseconds) override {
        _state->set(start, interval);
    }
    void resume() override { _state->resume(); }

private:
    const std::shared_ptr<TimerState> _state;
};

}  // namespace

Nanoseconds monotonicNow() {
    const auto now = std::chrono::nanoseconds(Clock::now().time_since_epoch());
    return static_cast<Nanoseconds>(now.count());
}

TimerService::TimerService()
    : _context(std::make_shared<asio::io_context>(1)),
      _keepWaiting(_context->get_executor()),
      _thread([context = _context] { context->run(); }) {
    ::pthread_setname_np(_thread.native_handle(), "timers");
}

TimerService::~TimerService() {
    stop();
}

void TimerService::after(Nanoseconds delay, std::shared_ptr<platform::WorkQueue> queue, Job job) {
    auto timer = std::make_unique<asio::steady_timer>(*_context,
                                                      pointOf(saturatedSum(monotonicNow(), delay)));
    asio::steady_timer& waiting = *timer;
    waiting.async_wait([timer = std::move(timer), queue = std::move(queue),
                        job = std::move(job)](const std::error_code& cancelled) mutable {
        if (!cancelled)
            queue->async(std::move(job));
    });
}

std::shared_ptr<platform::TimerSource> TimerService::makeTimer(
    std::shared_ptr<platform::WorkQueue> queue) {
    return std::make_shared<PooledTimer>(std::make_shared<TimerState>(_context, std::move(queue)));
}

void TimerService::stop() {
    _context->stop();
    if (_thread.joinable())
        _thread.join();
}

}  // namespace device
