// Purpose: one media worker as the host sees it: a child process, its socket, and the requests that
// it has not answered yet.
// Thread: an object belongs to one thread. Nothing here blocks but the end of a child.
// Ownership: the child is killed and reaped with the object.
// Failure: a worker that died or broke the protocol is "ended"; the reason tells how.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "common/unique_fd.h"
#include "host/scan/media_workers.h"
#include "platform/errors.h"

namespace host {

class WorkerProcess {
public:
    using Clock = std::chrono::steady_clock;

    // Starts the program; on an error there is no worker.
    static platform::OptionalError start(const std::string& executable, std::uint64_t memoryLimit,
                                         std::optional<WorkerProcess>& worker);
    WorkerProcess(WorkerProcess&& other) noexcept;
    WorkerProcess& operator=(WorkerProcess&&) = delete;
    ~WorkerProcess();

    int socket() const { return _socket.get(); }
    bool wantsToWrite() const { return !_outbox.empty(); }
    // Whether the program got as far as greeting.
    bool greeted() const { return _greeted; }
    // Places of the requests sent and not answered, the one being worked on first.
    const std::deque<std::size_t>& pending() const { return _pending; }
    // When the one being worked on began.
    Clock::time_point headStarted() const { return _headStarted; }

    void send(std::size_t place, const MediaRequest& request);
    // Moves bytes both ways and hands over whole answers. False when the worker has ended.
    bool exchange(const std::function<void(std::size_t, MediaAnswer)>& answered);
    // Kills and reaps; why it ended, in plain words about the file that it was reading.
    std::string end();

private:
    WorkerProcess(pid_t pid, common::UniqueFd socket);

    bool writeSome();
    bool readSome();
    bool takeAnswers(const std::function<void(std::size_t, MediaAnswer)>& answered);

    pid_t _pid = -1;
    common::UniqueFd _socket;
    std::string _outbox;
    std::string _inbox;
    bool _greeted = false;
    std::deque<std::size_t> _pending;
    Clock::time_point _headStarted{};
};

}  // namespace host
