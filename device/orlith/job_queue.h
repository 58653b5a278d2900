// A serial queue with a thread of its own and a bound on what waits in it, so that receiving and
// filing overlap without filling the memory or running far ahead.
//
// push() may be called from one thread, jobs run on another in the order pushed. A job must not
// throw.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace orlith {

class JobQueue {
public:
    // `budget` is what the waiting jobs may cost together, in the unit of push().
    explicit JobQueue(std::size_t budget);
    // Runs what is left.
    ~JobQueue();
    JobQueue(const JobQueue&) = delete;
    JobQueue& operator=(const JobQueue&) = delete;

    // Waits while others already cost the budget; a job that alone costs more, or
    // nothing, is still taken.
    void push(std::size_t cost, std::function<void()> job);
    // Waits until every job pushed before has run.
    void drain();
    // Returns when every job has run and the thread is gone. Nothing may be pushed afterwards.
    void finish();

private:
    struct Entry {
        std::size_t cost;
        std::function<void()> job;
    };

    void run();

    const std::size_t _budget;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Entry> _entries;   // guarded by _mutex
    std::size_t _cost = 0;        // of the entries and the job that runs; guarded by _mutex
    std::size_t _unfinished = 0;  // jobs that wait or run; guarded by _mutex
    bool _finishing = false;      // guarded by _mutex
    std::thread _thread;
};

}  // namespace orlith
