// Serial and global queues over one pool of workers per priority, semaphores and timers.
#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <string_view>

#include "platform/operating_system.h"

namespace device {

class TimerService;
class WorkerPool;

// Any thread, but for shutdown.
class WorkQueues {
public:
    // `workers`: how many jobs of one priority may run at once, beside those that wait in a
    // Semaphore or a BlockingScope.
    explicit WorkQueues(unsigned workers = 4);
    // Shuts down with a deadline of 10 seconds.
    ~WorkQueues();

    // Serial queues run at the default priority.
    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label);
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority);
    std::shared_ptr<platform::TimerSource> makeTimer(std::shared_ptr<platform::WorkQueue> queue);

    // Drops what is not due yet, then lets every job end, with the jobs that they add; a job given
    // later is dropped. False when some have not ended by the deadline; their threads are left
    // behind, and the process should end without touching what they use. Not from a job; harmless
    // twice.
    bool shutdown(std::chrono::milliseconds deadline);

private:
    static constexpr std::size_t priorities = 4;

    std::shared_ptr<TimerService> _timers;
    std::array<std::shared_ptr<WorkerPool>, priorities> _pools;
    std::array<std::shared_ptr<platform::WorkQueue>, priorities> _globalQueues;
    bool _shutDown = false;  // the owner's thread
};

// A counting semaphore; a wait inside a job lets another worker take its place.
std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value);

}  // namespace device
