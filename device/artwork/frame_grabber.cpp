#include "device/artwork/frame_grabber.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>

#include "common/unique_fd.h"

namespace artwork {
namespace {

using Clock = std::chrono::steady_clock;

platform::Error makeError(FrameGrabberErrorCode code, std::string_view text) {
    return {FrameGrabberErrorDomain, static_cast<std::int64_t>(code), text};
}

// A child process that does not outlive its object.
class HelperProcess {
public:
    HelperProcess() = default;
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;
    ~HelperProcess() {
        if (_pid <= 0)
            return;
        ::kill(_pid, SIGKILL);
        while (::waitpid(_pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

    // Gives 0 or an errno value.
    int start(const std::string& program, const std::string& argument, int input, int output) {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        // A group of its own: a Ctrl-C at the terminal is for us, who then end it.
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        std::string name = program;
        std::string value = argument;
        char* arguments[] = {name.data(), value.data(), nullptr};
        char* environment[] = {nullptr};
        const int status =
            ::posix_spawn(&_pid, program.c_str(), &actions, &attributes, arguments, environment);
        if (status != 0)
            _pid = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        return status;
    }

private:
    pid_t _pid = -1;
};

enum class Wait { Readable, TimedOut, Failed };

Wait waitReadable(int fd, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return Wait::TimedOut;
        pollfd entry{fd, POLLIN, 0};
        const int status = ::poll(&entry, 1, static_cast<int>(left.count()));
        if (status > 0)
            return Wait::Readable;
        if (status < 0 && errno != EINTR)
            return Wait::Failed;
    }
}

std::size_t lengthOf(const std::vector<std::uint8_t>& answer) {
    return std::size_t{answer[1]} | std::size_t{answer[2]} << 8 | std::size_t{answer[3]} << 16 |
           std::size_t{answer[4]} << 24;
}

bool isComplete(const std::vector<std::uint8_t>& answer) {
    return answer.size() >= FrameAnswerHeaderSize &&
           answer.size() - FrameAnswerHeaderSize >= lengthOf(answer);
}

// The whole answer with its header; an error when it does not come, or is larger than it may be.
std::vector<std::uint8_t> readAnswer(int fd, Clock::time_point deadline,
                                     platform::OptionalError& error) {
    std::vector<std::uint8_t> answer;
    std::array<std::uint8_t, 64 << 10> buffer;
    while (!isComplete(answer)) {
        const Wait wait = waitReadable(fd, deadline);
        if (wait == Wait::TimedOut) {
            error =
                makeError(FrameGrabberErrorCode::TimedOut, "The film takes too long to decode.");
            return {};
        }
        const ssize_t count =
            wait == Wait::Readable ? ::read(fd, buffer.data(), buffer.size()) : -1;
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0 || answer.size() + static_cast<std::size_t>(count) >
                              FrameAnswerHeaderSize + MaximumFrameAnswer) {
            error = makeError(FrameGrabberErrorCode::Died,
                              "The film's decoder ended without an answer.");
            return {};
        }
        answer.insert(answer.end(), buffer.begin(), buffer.begin() + count);
    }
    answer.resize(FrameAnswerHeaderSize + lengthOf(answer));
    return answer;
}

}  // namespace

FrameGrabber::FrameGrabber(std::string helperPath, std::chrono::milliseconds timeLimit)
    : _helperPath(std::move(helperPath)), _timeLimit(timeLimit) {}

std::vector<std::uint8_t> FrameGrabber::grab(int film, double seconds,
                                             platform::OptionalError& error) const {
    const Clock::time_point deadline = Clock::now() + _timeLimit;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error = platform::Error::posix(errno);
        return {};
    }
    const common::UniqueFd readEnd(ends[0]);
    common::UniqueFd writeEnd(ends[1]);
    HelperProcess helper;
    const int status =
        helper.start(_helperPath, fmt::format("{:.6f}", seconds), film, writeEnd.get());
    writeEnd.reset();  // so that the helper's end is seen
    if (status != 0) {
        error = platform::Error::posix(status);
        return {};
    }
    std::vector<std::uint8_t> answer = readAnswer(readEnd.get(), deadline, error);
    if (error)
        return {};
    const auto body = answer.begin() + FrameAnswerHeaderSize;
    if (answer.front() == FrameAnswerPicture && body != answer.end())
        return {body, answer.end()};
    error = makeError(FrameGrabberErrorCode::NoFrame, std::string(body, answer.end()));
    return {};
}

}  // namespace artwork
