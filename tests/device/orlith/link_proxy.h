// Stands between a companion and a first device as a directory of its own, whose socket passes
// everything on, until it is told to step in at a certain byte.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

namespace orlith::testing {

class LinkProxy {
public:
    enum class Way { ToCompanion, ToFirst };

    // In front of the daemon of a device directory.
    explicit LinkProxy(std::string firstRoot);
    ~LinkProxy();
    LinkProxy(const LinkProxy&) = delete;
    LinkProxy& operator=(const LinkProxy&) = delete;

    // To be given as the first device's directory.
    const std::string& root() const { return _root; }
    // Each connection made from now on: once so many bytes have gone one way, `then` is called, on
    // a thread of the proxy, and the connection is cut when it answers false.
    void at(Way way, std::size_t bytes, std::function<bool()> then);
    // How many bytes went that way on the connection made last.
    std::size_t passed(Way way) const { return _passed[static_cast<std::size_t>(way)]; }

private:
    struct Intervention {
        Way way = Way::ToCompanion;
        std::size_t bytes = SIZE_MAX;
        std::function<bool()> then;
    };

    void accept();
    void converse(common::UniqueFd companion, Intervention intervention);

    const std::string _firstRoot;
    std::string _root;
    common::UniqueFd _listener;
    std::atomic<bool> _ends{false};
    std::atomic<std::size_t> _passed[2] = {};
    std::mutex _mutex;
    Intervention _intervention;               // guarded by _mutex
    std::vector<std::thread> _conversations;  // the accepting thread's, until it has ended
    std::thread _thread;                      // last: it uses everything above
};

}  // namespace orlith::testing
