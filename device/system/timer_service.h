// Delayed jobs and timers. One thread waits for all of them and does nothing but hand jobs to their
// queues, so that a busy pool never delays a timer's time.
#pragma once

#include <memory>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "platform/operating_system.h"

namespace device {

// Of the clock behind platform::OperatingSystem::monotonicTime.
platform::Nanoseconds monotonicNow();

// Any thread.
class TimerService {
public:
    TimerService();
    ~TimerService();

    // Hands the job to the queue once `delay` has passed.
    void after(platform::Nanoseconds delay, std::shared_ptr<platform::WorkQueue> queue,
               platform::Job job);
    std::shared_ptr<platform::TimerSource> makeTimer(std::shared_ptr<platform::WorkQueue> queue);

    // From here on nothing becomes due any more. Not from a job of its own thread; harmless twice.
    void stop();

private:
    // Timers may outlive the service, but not the context that they wait on.
    const std::shared_ptr<asio::io_context> _context;
    asio::executor_work_guard<asio::io_context::executor_type> _keepWaiting;
    std::thread _thread;
};

}  // namespace device
