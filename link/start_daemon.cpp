#include "link/start_daemon.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <thread>
#include <vector>

#include "link/address.h"

extern char** environ;

namespace orlith::link {
namespace {

using common::UniqueFd;
using platform::Error;
using platform::OptionalError;
namespace fs = std::filesystem;

constexpr std::size_t LongestReason = 4096;
// The first byte of the report of a daemon that listens.
constexpr char Ready = '\x06';

Error failure(int errorNumber, const std::string& text) {
    return Error(platform::POSIXErrorDomain, errorNumber, text);
}

// The daemon beside the calling program; just its name, for a look along PATH, when there is none.
std::string defaultProgram() {
    std::error_code ignored;
    const fs::path self = fs::read_symlink("/proc/self/exe", ignored);
    const fs::path beside = self.parent_path() / "orlithd";
    return !self.empty() && fs::exists(beside, ignored) ? beside.string() : "orlithd";
}

// Where the daemon's messages go; /dev/null when the device directory takes no file.
std::string logFile(const std::string& root) {
    const fs::path directory = fs::path(root) / "var" / "log";
    std::error_code status;
    fs::create_directories(directory, status);
    return status ? "/dev/null" : (directory / "orlithd.log").string();
}

class SpawnSettings {
public:
    SpawnSettings(const std::string& log, int report) {
        posix_spawn_file_actions_init(&_actions);
        posix_spawn_file_actions_addopen(&_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&_actions, STDERR_FILENO, log.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0600);
        // Onto itself: this clears the close-on-exec mark of the child's copy.
        posix_spawn_file_actions_adddup2(&_actions, report, report);
        posix_spawnattr_init(&_attributes);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSID);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&_actions);
        posix_spawnattr_destroy(&_attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int spawn(pid_t& pid, std::vector<std::string> words) const {
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        return posix_spawnp(&pid, words.front().c_str(), &_actions, &_attributes, arguments.data(),
                            environ);
    }

private:
    posix_spawn_file_actions_t _actions;
    posix_spawnattr_t _attributes;
};

// Everything up to the end of the pipe; false when the time is over first.
bool readReport(int pipe, std::chrono::steady_clock::time_point deadline, std::string& report) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd waiting{pipe, POLLIN, 0};
        const int ready =
            left.count() <= 0 ? 0 : ::poll(&waiting, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        std::array<char, 1024> buffer;
        const ssize_t count = ::read(pipe, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return true;
        if (report.size() < LongestReason)
            report.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::vector<std::string> commandLine(const DaemonStart& start, const std::string& program,
                                     int report) {
    std::vector<std::string> words{program, "--root", start.root, StartupReportOption,
                                   std::to_string(report)};
    if (start.idleExit.count() > 0) {
        words.push_back("--idle-exit");
        words.push_back(std::to_string(start.idleExit.count()));
    }
    return words;
}

// How a daemon ends that finds another one serving the device.
constexpr int ServedAlreadyExitCode = 11;
constexpr std::chrono::milliseconds ServedAlreadyRetry{20};

}  // namespace

OptionalError startDaemon(const DaemonStart& start) {
    const std::string program = start.program.empty() ? defaultProgram() : start.program;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return Error::posix(errno);
    UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    pid_t pid = -1;
    const int status = SpawnSettings(logFile(start.root), writing.get())
                           .spawn(pid, commandLine(start, program, writing.get()));
    writing.reset();
    if (status != 0)
        return failure(status, fmt::format("cannot start {}: {}", program,
                                           std::generic_category().message(status)));

    std::string report;
    if (!readReport(reading.get(), std::chrono::steady_clock::now() + start.timeout, report))
        return failure(ETIMEDOUT, fmt::format("the device's daemon did not answer in {} ms",
                                              start.timeout.count()));
    if (report.size() == 1 && report.front() == Ready)
        return std::nullopt;
    // It ends by itself; this leaves no zombie behind in a caller that lives on.
    int ended = 0;
    while (::waitpid(pid, &ended, 0) < 0 && errno == EINTR) {
    }
    if (connectToSocket(socketPathOfDevice(start.root), nullptr))
        return std::nullopt;
    const bool isServed = WIFEXITED(ended) && WEXITSTATUS(ended) == ServedAlreadyExitCode;
    return failure(isServed ? EBUSY : ECHILD,
                   report.empty() ? fmt::format("{} ended before it was ready", program) : report);
}

// A daemon that has the device but does not listen is starting for somebody else, or leaving.
UniqueFd connectOrStart(const DaemonStart& start, OptionalError* error) {
    const std::string path = socketPathOfDevice(start.root);
    const auto deadline = std::chrono::steady_clock::now() + start.timeout;
    OptionalError reason;
    for (;;) {
        if (UniqueFd connection = connectToSocket(path, &reason))
            return connection;
        if (reason->code == ENOENT || reason->code == ECONNREFUSED) {
            reason = startDaemon(start);
            if (!reason)
                return connectToSocket(path, error);
        }
        if (reason->code != EBUSY || std::chrono::steady_clock::now() >= deadline)
            break;
        std::this_thread::sleep_for(ServedAlreadyRetry);
    }
    if (error)
        *error = reason;
    return {};
}

void reportStartup(int descriptor, const std::string& failure) {
    if (descriptor < 0)
        return;
    const UniqueFd report(descriptor);
    const std::string text = failure.empty() ? std::string(1, Ready) : failure;
    // A starter that is gone wants no report.
    [[maybe_unused]] const ssize_t written = ::write(report.get(), text.data(), text.size());
}

}  // namespace orlith::link
