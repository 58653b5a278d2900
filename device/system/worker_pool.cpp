#include "device/system/worker_pool.h"

#include <pthread.h>

#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace device {
namespace {

thread_local WorkerPool* currentPool = nullptr;

[[noreturn]] void endProcess(const char* reason) {
    fmt::print(stderr, "a job threw: {}\n", reason);
    std::terminate();
}

}  // namespace

void runJob(platform::Job job) noexcept {
    try {
        job();
        job = nullptr;
    } catch (const std::exception& error) {
        endProcess(error.what());
    } catch (...) {
        endProcess("unknown exception");
    }
}

WorkerPool::WorkerPool(std::string name, unsigned workers)
    : _name(std::move(name)),
      _wanted(workers),
      _context(static_cast<int>(workers)),
      _keepWaiting(_context.get_executor()) {}

WorkerPool::~WorkerPool() = default;

std::shared_ptr<WorkerPool> WorkerPool::start(std::string name, unsigned workers) {
    const std::shared_ptr<WorkerPool> pool(new WorkerPool(std::move(name), workers));
    const std::lock_guard lock(pool->_mutex);
    for (unsigned i = 0; i < workers; ++i)
        pool->addWorker(lock);
    return pool;
}

WorkerPool* WorkerPool::current() {
    return currentPool;
}

void WorkerPool::addWorker(const std::lock_guard<std::mutex>&) {
    for (std::thread& thread : std::exchange(_finished, {}))
        thread.join();
    std::thread thread([self = shared_from_this()] { self->work(); });
    ::pthread_setname_np(thread.native_handle(), _name.c_str());
    const std::thread::id id = thread.get_id();
    _threads.emplace(id, std::move(thread));
    ++_workers;
}

void WorkerPool::work() {
    currentPool = this;
    bool retired = false;
    while (!retired && _context.run_one() > 0)
        retired = retires();
    if (!retired)
        leave();
}

bool WorkerPool::retires() {
    const std::lock_guard lock(_mutex);
    if (_workers - _blocked <= _wanted)
        return false;
    --_workers;
    const auto self = _threads.find(std::this_thread::get_id());
    if (self != _threads.end()) {
        _finished.push_back(std::move(self->second));
        _threads.erase(self);
    }
    return true;
}

void WorkerPool::leave() {
    const std::lock_guard lock(_mutex);
    --_workers;
    _left.notify_all();
}

void WorkerPool::jobBlocks() {
    const std::lock_guard lock(_mutex);
    ++_blocked;
    if (_workers - _blocked >= _wanted)
        return;
    try {
        addWorker(lock);
    } catch (const std::system_error&) {
        // No thread to be had: the pool goes on with those that it has.
    }
}

void WorkerPool::jobContinues() {
    const std::lock_guard lock(_mutex);
    --_blocked;
}

bool WorkerPool::drain(std::chrono::steady_clock::time_point deadline) {
    _keepWaiting.reset();
    std::unique_lock lock(_mutex);
    const bool ended = _left.wait_until(lock, deadline, [&] { return _workers == 0; });
    for (auto& [id, thread] : _threads)
        _finished.push_back(std::move(thread));
    _threads.clear();
    std::vector<std::thread> threads = std::exchange(_finished, {});
    _drained = true;
    lock.unlock();
    for (std::thread& thread : threads) {
        if (ended)
            thread.join();
        else
            thread.detach();
    }
    return ended;
}

}  // namespace device
