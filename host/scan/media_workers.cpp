#include "host/scan/media_workers.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <deque>
#include <optional>
#include <vector>

#include "host/scan/file_names.h"
#include "host/scan/scanner.h"
#include "host/scan/worker_process.h"

namespace host {

namespace {

using Clock = WorkerProcess::Clock;
using std::chrono::milliseconds;

// Requests that one worker holds at most: it never waits for the host, and loses few when it ends.
constexpr std::size_t WindowSize = 8;
// How often a stop is looked for while nothing happens.
constexpr milliseconds StopInterval{50};
// A program that does not greet in this time is no worker.
constexpr milliseconds GreetingTimeout{30'000};

std::string workerBesideThisProgram() {
    const std::unique_ptr<char, decltype(&std::free)> self(::realpath("/proc/self/exe", nullptr),
                                                           &std::free);
    return std::string(folderOfPath(self ? self.get() : "")) + "/orlith-scan-worker";
}

}  // namespace

struct MediaWorkers::Impl {
    using Answered = std::function<void(std::size_t, MediaAnswer)>;

    explicit Impl(MediaWorkerOptions given) : options(std::move(given)) {
        if (options.executable.empty())
            options.executable = workerBesideThisProgram();
        options.count = std::max(options.count, 1u);
    }

    // Starts workers up to the number wanted for `waiting` requests.
    platform::OptionalError startWorkers(std::size_t waiting) {
        const std::size_t wanted = std::min<std::size_t>(options.count, waiting);
        while (workers.size() < wanted) {
            std::optional<WorkerProcess> worker;
            if (auto error = WorkerProcess::start(options.executable, options.memoryLimit, worker))
                return error;
            workers.push_back(std::make_unique<WorkerProcess>(std::move(*worker)));
        }
        return std::nullopt;
    }

    // Hands out requests evenly, so that the last ones do not queue up behind one worker.
    void distribute(std::span<const MediaRequest> requests, std::deque<std::size_t>& waiting) {
        for (std::size_t held = 0; held < WindowSize; ++held)
            for (const auto& worker : workers)
                if (!waiting.empty() && worker->pending().size() <= held) {
                    worker->send(waiting.front(), requests[waiting.front()]);
                    waiting.pop_front();
                }
    }

    Clock::time_point deadlineOf(const WorkerProcess& worker) const {
        return worker.headStarted() + (worker.greeted() ? options.fileTimeout : GreetingTimeout);
    }

    void waitForSockets() const {
        std::vector<pollfd> sockets;
        auto wait = StopInterval;
        for (const auto& worker : workers) {
            const short events = worker->wantsToWrite() ? POLLIN | POLLOUT : POLLIN;
            sockets.push_back({worker->socket(), events, 0});
            if (!worker->pending().empty())
                wait =
                    std::clamp(std::chrono::ceil<milliseconds>(deadlineOf(*worker) - Clock::now()),
                               milliseconds{0}, wait);
        }
        ::poll(sockets.data(), sockets.size(), static_cast<int>(wait.count()));
    }

    // The file that a worker ended on is answered with the reason; the others wait again.
    platform::OptionalError replace(WorkerProcess& worker, std::string timeoutReason,
                                    std::deque<std::size_t>& waiting, const Answered& answered) {
        const bool greeted = worker.greeted();
        std::deque<std::size_t> pending = worker.pending();
        std::string reason = worker.end();
        if (!greeted)
            return platform::Error(
                ScanErrorDomain, ScanErrorNoWorker,
                fmt::format("The media reader {} does not work.", displayText(options.executable)));
        if (pending.empty())
            return std::nullopt;
        const std::size_t place = pending.front();
        pending.pop_front();
        waiting.insert(waiting.begin(), pending.begin(), pending.end());
        answered(place, {timeoutReason.empty() ? std::move(reason) : std::move(timeoutReason), {}});
        return std::nullopt;
    }

    platform::OptionalError exchangeAll(std::deque<std::size_t>& waiting,
                                        const Answered& answered) {
        for (auto& worker : workers) {
            const bool alive = worker->exchange(answered);
            const bool late = !worker->pending().empty() && Clock::now() > deadlineOf(*worker);
            if (alive && !late)
                continue;
            std::string reason;
            if (alive)
                reason = fmt::format("reading it took longer than {} seconds",
                                     std::chrono::duration<double>(options.fileTimeout).count());
            auto error = replace(*worker, std::move(reason), waiting, answered);
            worker.reset();
            if (error)
                return error;
        }
        return std::nullopt;
    }

    platform::OptionalError run(std::span<const MediaRequest> requests, const Answered& answered,
                                const std::stop_token& stop) {
        std::deque<std::size_t> waiting;
        for (std::size_t place = 0; place < requests.size(); ++place)
            waiting.push_back(place);
        std::size_t open = requests.size();
        const Answered counted = [&](std::size_t place, MediaAnswer answer) {
            --open;
            answered(place, std::move(answer));
        };
        while (open > 0 && !stop.stop_requested()) {
            if (auto error = startWorkers(open))
                return error;
            distribute(requests, waiting);
            waitForSockets();
            auto error = exchangeAll(waiting, counted);
            std::erase(workers, nullptr);
            if (error)
                return error;
        }
        return std::nullopt;
    }

    MediaWorkerOptions options;
    std::vector<std::unique_ptr<WorkerProcess>> workers;
};

MediaWorkers::MediaWorkers(MediaWorkerOptions options)
    : _impl(std::make_unique<Impl>(std::move(options))) {}

MediaWorkers::~MediaWorkers() = default;

platform::OptionalError MediaWorkers::run(
    std::span<const MediaRequest> requests,
    const std::function<void(std::size_t, MediaAnswer)>& answered, const std::stop_token& stop) {
    auto error = _impl->run(requests, answered, stop);
    // Workers that still hold requests of this run would answer into the next.
    std::erase_if(_impl->workers, [](const auto& worker) { return !worker->pending().empty(); });
    return error;
}

}  // namespace host
