#include "device/korvane/activity_lock.h"

#include <utility>

namespace korvane {

ActivityLock::Hold::Hold(Hold&& other) noexcept
    : _lock(std::exchange(other._lock, nullptr)), _isSweep(other._isSweep) {}

ActivityLock::Hold& ActivityLock::Hold::operator=(Hold&& other) noexcept {
    if (this != &other) {
        release();
        _lock = std::exchange(other._lock, nullptr);
        _isSweep = other._isSweep;
    }
    return *this;
}

void ActivityLock::Hold::release() {
    ActivityLock* lock = std::exchange(_lock, nullptr);
    if (!lock)
        return;
    {
        std::lock_guard guard(lock->_mutex);
        if (_isSweep)
            lock->_isSwept = false;
        else
            --lock->_holders;
    }
    lock->_changed.notify_all();
}

ActivityLock::Hold ActivityLock::holdForFiles() {
    std::unique_lock guard(_mutex);
    ++_holders;
    _changed.wait(guard, [&] { return !_isSwept; });
    return {*this, false};
}

ActivityLock::Hold ActivityLock::tryHoldForSweep() {
    std::lock_guard guard(_mutex);
    if (_holders != 0 || _isSwept)
        return {};
    _isSwept = true;
    return {*this, true};
}

}  // namespace korvane
