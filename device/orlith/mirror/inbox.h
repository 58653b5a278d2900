// What waits for one thread: put in from any, taken out in order.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

namespace orlith {

template <typename Item>
class Inbox {
public:
    // False, and the item is dropped, once it is closed.
    bool put(Item item) {
        const std::scoped_lock lock(_mutex);
        if (_closed)
            return false;
        _items.push_back(std::move(item));
        _changed.notify_all();
        return true;
    }
    // As put(), but waits while so many are there.
    bool putWhenRoom(Item item, std::size_t most) {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [&] { return _closed || _items.size() < most; });
        if (_closed)
            return false;
        _items.push_back(std::move(item));
        _changed.notify_all();
        return true;
    }
    // Absent when nothing came until `deadline`.
    std::optional<Item> takeUntil(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(_mutex);
        _changed.wait_until(lock, deadline, [this] { return !_items.empty(); });
        if (_items.empty())
            return std::nullopt;
        std::optional<Item> item(std::move(_items.front()));
        _items.pop_front();
        _changed.notify_all();
        return item;
    }
    // Drops what is there and what comes later.
    void close() {
        std::deque<Item> dropped;
        const std::scoped_lock lock(_mutex);
        _closed = true;
        dropped.swap(_items);
        _changed.notify_all();
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<Item> _items;  // guarded by _mutex
    bool _closed = false;     // guarded by _mutex
};

}  // namespace orlith
