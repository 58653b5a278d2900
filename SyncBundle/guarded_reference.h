// A shared reference that several threads may read and replace.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

template <typename T>
class GuardedReference {
public:
    std::shared_ptr<T> load() const {
        const std::lock_guard lock(_mutex);
        return _reference;
    }

    // The replaced reference is released outside the lock: its owner's end may come back here.
    void store(std::shared_ptr<T> reference) {
        const std::lock_guard lock(_mutex);
        _reference.swap(reference);
    }

private:
    mutable std::mutex _mutex;
    std::shared_ptr<T> _reference;  // guarded by _mutex
};
