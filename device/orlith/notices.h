// What the device has to tell its owner in plain words: things that recovery put right.
//
// Any thread.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orlith {

class Notices {
public:
    // The same words are kept once, and only the latest 100.
    void add(std::string text) {
        const std::scoped_lock lock(_mutex);
        if (std::find(_texts.begin(), _texts.end(), text) != _texts.end())
            return;
        _texts.push_back(std::move(text));
        if (_texts.size() > Most)
            _texts.erase(_texts.begin());
    }
    std::vector<std::string> all() {
        const std::scoped_lock lock(_mutex);
        return _texts;
    }
    // All of them, which a host has then been told.
    std::vector<std::string> take() {
        const std::scoped_lock lock(_mutex);
        return std::exchange(_texts, {});
    }

private:
    static constexpr std::size_t Most = 100;

    std::mutex _mutex;
    std::vector<std::string> _texts;  // guarded by _mutex
};

}  // namespace orlith
