#include "host/scan/worker_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>

#include "host/scan/file_names.h"
#include "host/scan/scanner.h"
#include "host/scan/worker_protocol.h"

extern char** environ;

namespace host {

namespace {

constexpr std::size_t PieceSize = 256 * 1024;  // bytes read at once

platform::Error startError(const std::string& executable, int errorNumber) {
    return platform::Error(ScanErrorDomain, ScanErrorNoWorker,
                           fmt::format("The media reader {} cannot be started: {}.",
                                       displayText(executable), std::strerror(errorNumber)));
}

// What a spawned child begins with: its own process group, so that a Ctrl-C at the terminal is the
// host's to handle; no signal blocked or ignored; nothing open but its socket.
class SpawnSettings {
public:
    explicit SpawnSettings(int socket) {
        ::posix_spawn_file_actions_init(&_actions);
        ::posix_spawn_file_actions_adddup2(&_actions, socket, WorkerSocket);
        ::posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
        ::posix_spawn_file_actions_adddup2(&_actions, STDIN_FILENO, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&_actions, STDIN_FILENO, STDERR_FILENO);
        ::posix_spawn_file_actions_addclosefrom_np(&_actions, WorkerSocket + 1);
        ::posix_spawnattr_init(&_attributes);
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&_attributes, &none);
        ::posix_spawnattr_setsigdefault(&_attributes, &all);
        ::posix_spawnattr_setflags(
            &_attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&_actions);
        ::posix_spawnattr_destroy(&_attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* actions() const { return &_actions; }
    const posix_spawnattr_t* attributes() const { return &_attributes; }

private:
    posix_spawn_file_actions_t _actions{};
    posix_spawnattr_t _attributes{};
};

}  // namespace

platform::OptionalError WorkerProcess::start(const std::string& executable,
                                             std::uint64_t memoryLimit,
                                             std::optional<WorkerProcess>& worker) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return startError(executable, errno);
    common::UniqueFd ours(ends[0]);
    const common::UniqueFd theirs(ends[1]);
    ::fcntl(ours.get(), F_SETFL, O_NONBLOCK);

    const SpawnSettings settings(theirs.get());
    std::string program = executable;
    std::string limit = std::to_string(memoryLimit);
    char* arguments[] = {program.data(), limit.data(), nullptr};
    pid_t pid = -1;
    const int error = ::posix_spawn(&pid, executable.c_str(), settings.actions(),
                                    settings.attributes(), arguments, environ);
    if (error != 0)
        return startError(executable, error);
    worker.emplace(WorkerProcess(pid, std::move(ours)));
    return std::nullopt;
}

WorkerProcess::WorkerProcess(pid_t pid, common::UniqueFd socket)
    : _pid(pid), _socket(std::move(socket)) {}

WorkerProcess::WorkerProcess(WorkerProcess&& other) noexcept
    : _pid(std::exchange(other._pid, -1)),
      _socket(std::move(other._socket)),
      _outbox(std::move(other._outbox)),
      _inbox(std::move(other._inbox)),
      _greeted(other._greeted),
      _pending(std::move(other._pending)),
      _headStarted(other._headStarted) {}

WorkerProcess::~WorkerProcess() {
    end();
}

void WorkerProcess::send(std::size_t place, const MediaRequest& request) {
    if (_pending.empty())
        _headStarted = Clock::now();
    _pending.push_back(place);
    _outbox += framedMessage(encodeRequest(request));
}

bool WorkerProcess::exchange(const std::function<void(std::size_t, MediaAnswer)>& answered) {
    const bool alive = writeSome() && readSome();
    // What arrived before the end still counts.
    return takeAnswers(answered) && alive;
}

bool WorkerProcess::writeSome() {
    while (!_outbox.empty()) {
        const ssize_t sent = ::send(_socket.get(), _outbox.data(), _outbox.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0)
            return errno == EAGAIN || errno == EPIPE || errno == ECONNRESET;
        _outbox.erase(0, static_cast<std::size_t>(sent));
    }
    return true;
}

bool WorkerProcess::readSome() {
    while (true) {
        const std::size_t had = _inbox.size();
        _inbox.resize(had + PieceSize);
        const ssize_t got = ::recv(_socket.get(), _inbox.data() + had, PieceSize, 0);
        _inbox.resize(had + static_cast<std::size_t>(got > 0 ? got : 0));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno == EAGAIN;
        if (got == 0)
            return false;
        if (static_cast<std::size_t>(got) < PieceSize)
            return true;
    }
}

bool WorkerProcess::takeAnswers(const std::function<void(std::size_t, MediaAnswer)>& answered) {
    bool tooLong = false;
    while (const auto message = takeMessage(_inbox, tooLong)) {
        if (!_greeted) {
            _greeted = *message == WorkerGreeting;
            if (!_greeted)
                return false;
            _headStarted = Clock::now();
            continue;
        }
        auto answer = decodeAnswer(*message);
        if (!answer || _pending.empty())
            return false;
        const std::size_t place = _pending.front();
        _pending.pop_front();
        _headStarted = Clock::now();
        answered(place, std::move(*answer));
    }
    return !tooLong;
}

std::string WorkerProcess::end() {
    if (_pid < 0)
        return {};
    int status = 0;
    // A worker that ended by itself keeps its own status: the signal comes too late.
    ::kill(_pid, SIGKILL);
    while (::waitpid(_pid, &status, 0) < 0 && errno == EINTR) {
    }
    _pid = -1;
    _socket.reset();
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)
        return "reading it takes too much processor time";
    return "the file crashed the reader";
}

}  // namespace host
