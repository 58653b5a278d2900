// The streams that a client keeps while they work: put there on the daemon's threads, taken away on
// the streams' own. Callable from any thread; guards itself.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

class GuardedStreams {
public:
    class Removal;

    void add(std::shared_ptr<void> stream) {
        const std::lock_guard lock(_mutex);
        _streams.push_back(std::move(stream));
    }

    // The removed reference is released outside the lock: the end of a stream may come back here.
    void remove(const void* stream) {
        std::shared_ptr<void> removed;
        const std::lock_guard lock(_mutex);
        const auto found =
            std::find_if(_streams.begin(), _streams.end(),
                         [stream](const auto& kept) { return kept.get() == stream; });
        if (found == _streams.end())
            return;
        removed = std::move(*found);
        _streams.erase(found);
    }

    void clear() {
        std::vector<std::shared_ptr<void>> removed;
        const std::lock_guard lock(_mutex);
        _streams.swap(removed);
    }

    std::size_t size() const {
        const std::lock_guard lock(_mutex);
        return _streams.size();
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::shared_ptr<void>> _streams;  // guarded by _mutex
};

// Removes a stream at the end of a scope, also when an exception leaves it.
class GuardedStreams::Removal {
public:
    Removal(GuardedStreams& streams, const void* stream) : _streams(streams), _stream(stream) {}
    ~Removal() { _streams.remove(_stream); }
    Removal(const Removal&) = delete;
    Removal& operator=(const Removal&) = delete;

private:
    GuardedStreams& _streams;
    const void* const _stream;
};
