// Purpose: keeps the sweep of orphaned files apart from whoever puts files in place: sessions and
//          installs hold the lock side by side, the sweep only when nobody does.
// Calling thread: any; what one thread began another may end.
// Ownership: a Hold ends when it is released; the lock outlives its holds.
#pragma once

#include <condition_variable>
#include <mutex>

namespace korvane {

class ActivityLock {
public:
    class Hold {
    public:
        Hold() = default;
        Hold(Hold&& other) noexcept;
        Hold& operator=(Hold&& other) noexcept;
        ~Hold() { release(); }
        void release();
        explicit operator bool() const { return _lock != nullptr; }

    private:
        friend class ActivityLock;
        Hold(ActivityLock& lock, bool isSweep) : _lock(&lock), _isSweep(isSweep) {}
        ActivityLock* _lock = nullptr;
        bool _isSweep = false;
    };

    // For a session or an install. Waits for the folder that the sweep is in, no longer.
    Hold holdForFiles();
    // Empty while anybody holds the lock or waits for it.
    Hold tryHoldForSweep();

private:
    std::mutex _mutex;  // protects everything below
    std::condition_variable _changed;
    int _holders = 0;  // sessions and installs, those that wait included
    bool _isSwept = false;
};

}  // namespace korvane
