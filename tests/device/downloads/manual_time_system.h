// The device's services with a clock that stands still until a test moves it; queues are real.
#pragma once

#include <map>
#include <mutex>
#include <optional>

#include "device/system/system_services.h"

namespace test {

class ManualTimeSystem final : public platform::OperatingSystem {
public:
    explicit ManualTimeSystem(const std::string& root) : _real(root) {}

    // Timers that become due hand their handlers to their queues.
    void advance(platform::Nanoseconds span) {
        const std::lock_guard lock(_mutex);
        _now += span;
        for (const auto& weakTimer : _timers)
            if (const auto timer = weakTimer.lock())
                timer->fireWhenDue(_now);
    }

    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label) override {
        return _real.makeSerialQueue(label);
    }
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority) override {
        return _real.globalQueue(priority);
    }
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value) override {
        return _real.makeSemaphore(value);
    }
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue> queue) override {
        const auto timer = std::make_shared<Timer>(*this, std::move(queue));
        const std::lock_guard lock(_mutex);
        _timers.push_back(timer);
        return timer;
    }
    double absoluteTime() override { return static_cast<double>(monotonicTime()) / 1e9; }
    platform::Nanoseconds monotonicTime() override {
        const std::lock_guard lock(_mutex);
        return _now;
    }
    device::RootedFileSystem& fileSystem() override { return _real.fileSystem(); }
    platform::NotificationCenter& defaultNotificationCenter() override {
        return _real.defaultNotificationCenter();
    }
    platform::NamedNotifications& namedNotifications() override {
        return _real.namedNotifications();
    }
    platform::PropertyLists& propertyLists() override { return _real.propertyLists(); }

private:
    class Timer final : public platform::TimerSource {
    public:
        Timer(ManualTimeSystem& system, std::shared_ptr<platform::WorkQueue> queue)
            : _system(system), _queue(std::move(queue)) {}
        void setEventHandler(platform::Job handler) override { _handler = std::move(handler); }
        void setTimer(platform::Nanoseconds start, platform::Nanoseconds,
                      platform::Nanoseconds) override {
            const std::lock_guard lock(_system._mutex);
            _start = start;
            fireWhenDue(_system._now);
        }
        void resume() override {}
        // Holding the system's mutex.
        void fireWhenDue(platform::Nanoseconds now) {
            if (_start > now)
                return;
            _start = platform::Never;
            _queue->async(_handler);
        }

    private:
        ManualTimeSystem& _system;
        const std::shared_ptr<platform::WorkQueue> _queue;
        platform::Job _handler;                          // set before the first time
        platform::Nanoseconds _start = platform::Never;  // protected by the system's mutex
    };

    std::mutex _mutex;  // protects what follows
    platform::Nanoseconds _now = 1'000'000'000'000;
    std::vector<std::weak_ptr<Timer>> _timers;

    device::SystemServices _real;  // last, so that no job outlives what it uses
};

}  // namespace test
