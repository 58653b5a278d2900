#include "device/orlith/job_queue.h"

#include <utility>

namespace orlith {

JobQueue::JobQueue(std::size_t budget) : _budget(budget), _thread([this] { run(); }) {}

JobQueue::~JobQueue() {
    finish();
}

void JobQueue::push(std::size_t cost, std::function<void()> job) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return _cost == 0 || cost == 0 || _cost + cost <= _budget; });
    _entries.push_back({cost, std::move(job)});
    _cost += cost;
    ++_unfinished;
    _changed.notify_all();
}

void JobQueue::drain() {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [&] { return _unfinished == 0; });
}

void JobQueue::finish() {
    {
        const std::scoped_lock lock(_mutex);
        _finishing = true;
        _changed.notify_all();
    }
    if (_thread.joinable())
        _thread.join();
}

void JobQueue::run() {
    std::unique_lock lock(_mutex);
    for (;;) {
        _changed.wait(lock, [&] { return _finishing || !_entries.empty(); });
        if (_entries.empty())
            return;
        Entry entry = std::move(_entries.front());
        _entries.pop_front();
        lock.unlock();
        entry.job();
        entry.job = nullptr;
        lock.lock();
        _cost -= entry.cost;
        --_unfinished;
        _changed.notify_all();
    }
}

}  // namespace orlith
