#include "device/system/work_queues.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include <asio/post.hpp>
#include <asio/strand.hpp>

#include "device/system/timer_service.h"
#include "device/system/worker_pool.h"

namespace device {
namespace {

using platform::Job;
using platform::Nanoseconds;
using platform::WorkQueue;

thread_local const WorkQueue* currentQueue = nullptr;

// A queue over an executor of a pool: a strand of it runs one job at a time, the bare one all.
template <typename Executor>
class PooledQueue final : public WorkQueue,
                          public std::enable_shared_from_this<PooledQueue<Executor>> {
public:
    PooledQueue(std::string_view label, std::shared_ptr<WorkerPool> pool, Executor executor,
                std::weak_ptr<TimerService> timers)
        : _label(label),
          _pool(std::move(pool)),
          _executor(std::move(executor)),
          _timers(std::move(timers)) {}

    const std::string& label() const override { return _label; }

    void async(Job job) override {
        if (_pool->isDrained())
            return;
        asio::post(_executor, [self = this->shared_from_this(), job = std::move(job)]() mutable {
            const WorkQueue* const outer = std::exchange(currentQueue, self.get());
            runJob(std::move(job));
            currentQueue = outer;
        });
    }

    void asyncAfter(Nanoseconds delay, Job job) override {
        if (const auto timers = _timers.lock())
            timers->after(delay, this->shared_from_this(), std::move(job));
    }

    bool isCurrent() const override { return currentQueue == this; }

private:
    const std::string _label;
    const std::shared_ptr<WorkerPool> _pool;  // outlives the executor
    const Executor _executor;
    const std::weak_ptr<TimerService> _timers;  // waiting jobs refer to their queue
};

template <typename Executor>
std::shared_ptr<WorkQueue> makeQueue(std::string_view label, std::shared_ptr<WorkerPool> pool,
                                     Executor executor, std::weak_ptr<TimerService> timers) {
    return std::make_shared<PooledQueue<Executor>>(label, std::move(pool), std::move(executor),
                                                   std::move(timers));
}

class CountingSemaphore final : public platform::Semaphore {
public:
    explicit CountingSemaphore(std::int64_t value) : _value(value) {}

    void signal() override {
        const std::lock_guard lock(_mutex);
        ++_value;
        // Under the lock: whoever is woken may release the semaphore.
        _signalled.notify_one();
    }

    void wait() override {
        if (take())
            return;
        const BlockingScope blocking;
        std::unique_lock lock(_mutex);
        _signalled.wait(lock, [&] { return _value > 0; });
        --_value;
    }

private:
    bool take() {
        const std::lock_guard lock(_mutex);
        if (_value <= 0)
            return false;
        --_value;
        return true;
    }

    std::mutex _mutex;  // protects _value
    std::condition_variable _signalled;
    std::int64_t _value;
};

constexpr const char* poolNames[] = {"jobs high", "jobs default", "jobs low", "jobs background"};

}  // namespace

WorkQueues::WorkQueues(unsigned workers) : _timers(std::make_shared<TimerService>()) {
    for (std::size_t i = 0; i < priorities; ++i) {
        _pools[i] = WorkerPool::start(poolNames[i], workers);
        _globalQueues[i] =
            makeQueue(poolNames[i], _pools[i], _pools[i]->context().get_executor(), _timers);
    }
}

WorkQueues::~WorkQueues() {
    shutdown(std::chrono::seconds(10));
}

std::shared_ptr<WorkQueue> WorkQueues::makeSerialQueue(std::string_view label) {
    const auto& pool = _pools[static_cast<std::size_t>(platform::QueuePriority::Default)];
    return makeQueue(label, pool, asio::make_strand(pool->context()), _timers);
}

std::shared_ptr<WorkQueue> WorkQueues::globalQueue(platform::QueuePriority priority) {
    return _globalQueues.at(static_cast<std::size_t>(priority));
}

std::shared_ptr<platform::TimerSource> WorkQueues::makeTimer(std::shared_ptr<WorkQueue> queue) {
    return _timers->makeTimer(std::move(queue));
}

bool WorkQueues::shutdown(std::chrono::milliseconds deadline) {
    if (std::exchange(_shutDown, true))
        return true;
    const auto end = std::chrono::steady_clock::now() + deadline;
    _timers->stop();
    bool ended = true;
    for (const auto& pool : _pools)
        ended = pool->drain(end) && ended;
    return ended;
}

std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value) {
    return std::make_shared<CountingSemaphore>(value);
}

}  // namespace device
