#include "tests/support/virtual_scheduler.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

namespace support {
namespace {

// The queues whose jobs the thread is inside of.
thread_local std::vector<const platform::WorkQueue*> currentQueues;

}  // namespace

class VirtualQueue : public platform::WorkQueue, public std::enable_shared_from_this<VirtualQueue> {
public:
    VirtualQueue(VirtualScheduler& scheduler, std::string_view label, bool isSerial)
        : _scheduler(scheduler), _label(label), _isSerial(isSerial) {}

    const std::string& label() const override { return _label; }
    void async(platform::Job job) override {
        _scheduler._recorder.record("WorkQueue.async", {_label});
        _scheduler.add(0, shared_from_this(), std::move(job));
    }
    void asyncAfter(platform::Nanoseconds delay, platform::Job job) override {
        _scheduler._recorder.record("WorkQueue.asyncAfter", {_label, delay});
        _scheduler.add(delay, shared_from_this(), std::move(job));
    }
    bool isCurrent() const override {
        return std::find(currentQueues.begin(), currentQueues.end(), this) != currentQueues.end();
    }

    bool isFree() const { return !_isSerial || !_isBusy; }
    void setBusy(bool isBusy) { _isBusy = isBusy; }

private:
    VirtualScheduler& _scheduler;
    const std::string _label;
    const bool _isSerial;
    bool _isBusy = false;  // guarded by the scheduler's mutex
};

class VirtualSemaphore : public platform::Semaphore {
public:
    VirtualSemaphore(VirtualScheduler& scheduler, std::int64_t value)
        : _scheduler(scheduler), _value(value) {}

    void signal() override {
        _scheduler._recorder.record("Semaphore.signal");
        ++_value;
    }
    void wait() override {
        _scheduler._recorder.record("Semaphore.wait");
        while (_value.load() <= 0) {
            if (!_scheduler.makeProgress())
                throw std::logic_error("a wait that nothing can end");
        }
        --_value;
    }

private:
    VirtualScheduler& _scheduler;
    std::atomic<std::int64_t> _value;
};

class VirtualTimer : public platform::TimerSource {
public:
    VirtualTimer(VirtualScheduler& scheduler, std::shared_ptr<platform::WorkQueue> queue)
        : _scheduler(scheduler), _queue(std::move(queue)) {}

    void setEventHandler(platform::Job handler) override {
        _scheduler._recorder.record("TimerSource.setEventHandler");
        const std::lock_guard lock(_scheduler._mutex);
        _handler = std::make_shared<platform::Job>(std::move(handler));
    }
    void setTimer(platform::Nanoseconds start, platform::Nanoseconds interval,
                  platform::Nanoseconds leeway) override {
        _scheduler._recorder.record("TimerSource.setTimer", {start, interval, leeway});
        const std::lock_guard lock(_scheduler._mutex);
        _start = start;
        _interval = interval;
        _leeway = leeway;
    }
    void resume() override {
        _scheduler._recorder.record("TimerSource.resume");
        const std::lock_guard lock(_scheduler._mutex);
        _isResumed = true;
    }

    // The scheduler's mutex is held.
    platform::Nanoseconds due() const {
        return _isResumed && _start != platform::Never ? _start + _leeway : platform::Never;
    }
    void fire(platform::Nanoseconds now) {
        _start = _interval == platform::Never ? platform::Never : now + _interval;
        if (!_handler)
            return;
        _queue->async([handler = _handler] { (*handler)(); });
    }

private:
    VirtualScheduler& _scheduler;
    const std::shared_ptr<platform::WorkQueue> _queue;
    // Guarded by the scheduler's mutex:
    std::shared_ptr<platform::Job> _handler;
    platform::Nanoseconds _start = platform::Never;
    platform::Nanoseconds _interval = platform::Never;
    platform::Nanoseconds _leeway = 0;
    bool _isResumed = false;
};

// A queue is busy, and the thread inside a job of it, as long as this lives.
class VirtualScheduler::QueueTurn {
public:
    QueueTurn(VirtualScheduler& scheduler, VirtualQueue& queue)
        : _scheduler(scheduler), _queue(queue) {
        currentQueues.push_back(&_queue);
    }
    ~QueueTurn() {
        currentQueues.pop_back();
        const std::lock_guard lock(_scheduler._mutex);
        _queue.setBusy(false);
    }
    QueueTurn(const QueueTurn&) = delete;
    QueueTurn& operator=(const QueueTurn&) = delete;

private:
    VirtualScheduler& _scheduler;
    VirtualQueue& _queue;
};

std::shared_ptr<platform::WorkQueue> VirtualScheduler::makeQueue(std::string_view label,
                                                                 bool isSerial) {
    return std::make_shared<VirtualQueue>(*this, label, isSerial);
}

std::shared_ptr<platform::Semaphore> VirtualScheduler::makeSemaphore(std::int64_t value) {
    return std::make_shared<VirtualSemaphore>(*this, value);
}

std::shared_ptr<platform::TimerSource> VirtualScheduler::makeTimer(
    std::shared_ptr<platform::WorkQueue> queue) {
    auto timer = std::make_shared<VirtualTimer>(*this, std::move(queue));
    const std::lock_guard lock(_mutex);
    _timers.push_back(timer);
    return timer;
}

platform::Nanoseconds VirtualScheduler::now() const {
    const std::lock_guard lock(_mutex);
    return _now;
}

void VirtualScheduler::add(platform::Nanoseconds delay, std::shared_ptr<VirtualQueue> queue,
                           platform::Job job) {
    const std::lock_guard lock(_mutex);
    _entries.push_back({_now + delay, std::move(queue), std::move(job)});
}

void VirtualScheduler::post(platform::Nanoseconds delay, platform::Job job) {
    add(delay, std::make_shared<VirtualQueue>(*this, "service", false), std::move(job));
}

void VirtualScheduler::discardJobs() {
    std::list<Entry> discarded;
    const std::lock_guard lock(_mutex);
    discarded.swap(_entries);
}

bool VirtualScheduler::runOneJob() {
    std::unique_lock lock(_mutex);
    fireDueTimers();
    const auto next = std::find_if(_entries.begin(), _entries.end(), [this](const Entry& entry) {
        return entry.due <= _now && entry.queue->isFree();
    });
    if (next == _entries.end())
        return false;
    Entry entry = std::move(*next);
    _entries.erase(next);
    entry.queue->setBusy(true);
    lock.unlock();
    const QueueTurn turn(*this, *entry.queue);
    entry.job();
    entry.job = nullptr;  // what it holds goes while its queue is still busy
    return true;
}

void VirtualScheduler::fireDueTimers() {
    for (const std::weak_ptr<VirtualTimer>& weakTimer : _timers) {
        const auto timer = weakTimer.lock();
        if (timer && timer->due() <= _now)
            timer->fire(_now);
    }
}

platform::Nanoseconds VirtualScheduler::nextDue() const {
    platform::Nanoseconds next = platform::Never;
    for (const Entry& entry : _entries) {
        if (entry.due > _now)
            next = std::min(next, entry.due);
    }
    for (const std::weak_ptr<VirtualTimer>& weakTimer : _timers) {
        if (const auto timer = weakTimer.lock())
            next = std::min(next, timer->due());
    }
    return next;
}

bool VirtualScheduler::makeProgress() {
    if (runOneJob())
        return true;
    const std::lock_guard lock(_mutex);
    const platform::Nanoseconds next = nextDue();
    if (next == platform::Never)
        return false;
    _now = std::max(_now, next);
    return true;
}

void VirtualScheduler::runDueJobs() {
    while (runOneJob()) {
    }
}

void VirtualScheduler::advance(platform::Nanoseconds span) {
    const platform::Nanoseconds end = now() + span;
    runDueJobs();
    while (true) {
        {
            const std::lock_guard lock(_mutex);
            const platform::Nanoseconds next = nextDue();
            _now = std::min(next, end);
            if (next > end)
                return;
        }
        runDueJobs();
    }
}

bool VirtualScheduler::hasWork() const {
    const std::lock_guard lock(_mutex);
    return !_entries.empty() || nextDue() != platform::Never;
}

}  // namespace support
