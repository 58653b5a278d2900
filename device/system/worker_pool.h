// The threads that run jobs. A pool keeps a fixed number of workers able to take a job: a worker
// whose job waits is replaced until it goes on, so jobs that wait for each other never starve the
// pool.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "platform/operating_system.h"

namespace device {

// Any thread, but for drain. Alive as long as a worker or a queue refers to it.
class WorkerPool : public std::enable_shared_from_this<WorkerPool> {
public:
    // `name`: at most 15 bytes, shown as the threads' name. `workers` may take jobs at any time.
    static std::shared_ptr<WorkerPool> start(std::string name, unsigned workers);
    ~WorkerPool();

    asio::io_context& context() { return _context; }

    // The pool that the calling thread works for; null on other threads.
    static WorkerPool* current();
    // Called by a worker around a wait; see BlockingScope.
    void jobBlocks();
    void jobContinues();

    // Lets the jobs that are there, and those that they add, end. Called once, not from a worker.
    // False when some have not ended by the deadline: their threads are left behind.
    bool drain(std::chrono::steady_clock::time_point deadline);
    // Whether drain is over: nothing runs jobs any more.
    bool isDrained() const { return _drained; }

private:
    WorkerPool(std::string name, unsigned workers);
    void addWorker(const std::lock_guard<std::mutex>&);
    void work();
    // Whether the calling worker is one too many; if so it counts no longer.
    bool retires();
    void leave();

    const std::string _name;
    const unsigned _wanted;
    asio::io_context _context;
    asio::executor_work_guard<asio::io_context::executor_type> _keepWaiting;  // drain only

    std::atomic<bool> _drained = false;
    std::mutex _mutex;  // protects what follows
    std::condition_variable _left;
    std::map<std::thread::id, std::thread> _threads;
    std::vector<std::thread> _finished;  // ended or about to, not joined yet
    unsigned _workers = 0;               // including blocked ones
    unsigned _blocked = 0;
};

// Stands around a wait of any kind inside a job: meanwhile another worker takes its place. Does
// nothing on threads that belong to no pool.
class BlockingScope {
public:
    BlockingScope() : _pool(WorkerPool::current()) {
        if (_pool)
            _pool->jobBlocks();
    }
    BlockingScope(const BlockingScope&) = delete;
    BlockingScope& operator=(const BlockingScope&) = delete;
    ~BlockingScope() {
        if (_pool)
            _pool->jobContinues();
    }

private:
    WorkerPool* const _pool;
};

// Runs a job, and releases it. A job that throws ends the process, with the reason on standard
// error.
void runJob(platform::Job job) noexcept;

}  // namespace device
