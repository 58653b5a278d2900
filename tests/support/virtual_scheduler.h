// Queues, timers and semaphores over a virtual clock. Nothing runs by itself: a test runs what is
// due, advances the clock, or waits on a semaphore, which runs jobs and advances the clock until
// the semaphore is signalled. So every order is the same each time. Jobs may be given from any
// thread; they run on the thread that asks for it.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/operating_system.h"
#include "tests/support/recorder.h"

namespace support {

class VirtualQueue;
class VirtualTimer;

class VirtualScheduler {
public:
    explicit VirtualScheduler(Recorder& recorder) : _recorder(recorder) {}

    std::shared_ptr<platform::WorkQueue> makeQueue(std::string_view label, bool isSerial);
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value);
    std::shared_ptr<platform::TimerSource> makeTimer(std::shared_ptr<platform::WorkQueue> queue);

    platform::Nanoseconds now() const;
    // Runs every job that is due, also those that they add.
    void runDueJobs();
    // Goes through every due time up to `span` from now and runs what is due there.
    void advance(platform::Nanoseconds span);
    // A job of a service's own thread, not before `delay` has passed; not recorded.
    void post(platform::Nanoseconds delay, platform::Job job);
    // Releases every job that has not run.
    void discardJobs();
    // Whether a job or a timer still has a time at which it is due.
    bool hasWork() const;

private:
    friend class VirtualQueue;
    friend class VirtualSemaphore;
    friend class VirtualTimer;

    class QueueTurn;
    struct Entry {
        platform::Nanoseconds due;
        std::shared_ptr<VirtualQueue> queue;
        platform::Job job;
    };

    void add(platform::Nanoseconds delay, std::shared_ptr<VirtualQueue> queue, platform::Job job);
    // The first job due whose queue is free; false when there is none.
    bool runOneJob();
    void fireDueTimers();
    // The next time at which something is due, Never when nothing is. _mutex is held.
    platform::Nanoseconds nextDue() const;
    // Runs one job, or advances to the next due time; false when nothing is left.
    bool makeProgress();

    Recorder& _recorder;
    mutable std::recursive_mutex _mutex;  // guards all below
    platform::Nanoseconds _now = 1'000'000'000'000;
    std::list<Entry> _entries;  // in the order given
    std::vector<std::weak_ptr<VirtualTimer>> _timers;
};

}  // namespace support
