// An owned file descriptor: closed when released. Not shared between threads without a lock.
#pragma once

#include <unistd.h>

#include <utility>

namespace common {

class UniqueFd {
public:
    UniqueFd() = default;
    // Takes ownership; a negative number is "none".
    explicit UniqueFd(int fd) : _fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : _fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    explicit operator bool() const { return _fd >= 0; }
    int get() const { return _fd; }
    // Hands ownership to the caller.
    int release() { return std::exchange(_fd, -1); }
    void reset(int fd = -1) {
        if (_fd >= 0 && _fd != fd)
            ::close(_fd);
        _fd = fd;
    }

private:
    int _fd = -1;
};

}  // namespace common
