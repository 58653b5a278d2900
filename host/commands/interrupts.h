// Purpose: turns Ctrl-C and the end signal into calls on a thread: the first asks to stop in order,
// the second ends the program at once.
// Thread: make one before any other thread starts, so that all of them inherit the blocked signals;
// the handler runs on a thread of its own.
// Ownership: the handler is called no more once the object is gone.
// Failure: none.
#pragma once

#include <functional>
#include <thread>

#include "common/unique_fd.h"

namespace host {

class Interrupts {
public:
    explicit Interrupts(std::function<void()> handler);
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

private:
    void wait();

    const std::function<void()> _handler;
    common::UniqueFd _signals;
    common::UniqueFd _stop;
    std::thread _thread;
};

}  // namespace host
