#include "host/commands/interrupts.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdint>

namespace host {

namespace {

// As if nobody had ever caught it: what a shell expects of a program that is made to stop, and no
// exit handler waits for threads that are in the middle of something.
void endBy(int signal) {
    ::signal(signal, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    ::raise(signal);
}

}  // namespace

Interrupts::Interrupts(std::function<void()> handler) : _handler(std::move(handler)) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A reader of our output that has left is no reason to leave in disorder.
    ::signal(SIGPIPE, SIG_IGN);
    _signals.reset(::signalfd(-1, &signals, SFD_CLOEXEC));
    _stop.reset(::eventfd(0, EFD_CLOEXEC));
    _thread = std::thread([this] { wait(); });
}

Interrupts::~Interrupts() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(_stop.get(), &one, sizeof one);
    _thread.join();
}

void Interrupts::wait() {
    pollfd sources[] = {{_signals.get(), POLLIN, 0}, {_stop.get(), POLLIN, 0}};
    for (bool again = false;; again = true) {
        while (::poll(sources, 2, -1) < 0) {
        }
        if (sources[1].revents != 0)
            return;
        signalfd_siginfo signal{};
        if (::read(_signals.get(), &signal, sizeof signal) != sizeof signal)
            return;
        if (again)
            endBy(static_cast<int>(signal.ssi_signo));
        _handler();
    }
}

}  // namespace host
