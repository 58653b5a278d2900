#include "device/orlith/mirror/mirror_runner.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>

#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;
using std::chrono::milliseconds;

// How long a run that does not follow waits for a busy device.
constexpr std::chrono::seconds BusyPatience{10};
// Pauses between attempts. Two devices that refuse each other draw different ones.
constexpr milliseconds ShortestPause{50};
constexpr milliseconds LongestPause{2000};
// How often a follower looks whether it was missed by a wake-up.
constexpr std::chrono::seconds LookInterval{1};

bool isBusy(const Error& error) {
    return error.domain == OrlithErrorDomain && error.code == OrlithErrorBusy;
}

// The other device's daemon has ended or is about to.
bool isGone(const Error& error) {
    return (error.domain == platform::POSIXErrorDomain &&
            (error.code == ECONNRESET || error.code == ECONNREFUSED || error.code == ENOENT ||
             error.code == EPIPE)) ||
           (error.domain == OrlithErrorDomain && error.code == OrlithErrorStopping);
}

class Pauses {
public:
    milliseconds next() {
        std::uniform_int_distribution<milliseconds::rep> pause(ShortestPause.count(),
                                                               _longest.count());
        _longest = std::min(_longest * 2, LongestPause);
        return milliseconds(pause(_random));
    }

private:
    std::mt19937 _random{std::random_device{}()};
    milliseconds _longest = ShortestPause * 4;
};

bool never() {
    return false;
}

}  // namespace

MirrorRunner::MirrorRunner(const MirrorServices& services, const link::MirrorRequest& request,
                           const MirrorEvents& events, Cancellation& cancellation)
    : _services(services), _request(request), _events(events), _cancellation(cancellation) {}

OptionalError MirrorRunner::run() {
    std::error_code status;
    if (std::filesystem::equivalent(_request.from_directory(), _services.device.files.realPath("/"),
                                    status))
        return Error(platform::POSIXErrorDomain, EINVAL, "a device cannot be mirrored from itself");
    OptionalError error = connect();
    if (!error)
        error = mirrorOnce();
    if (!error && _request.follow())
        follow(error);
    const OptionalError cancelled = _cancellation.reason();
    if (cancelled && _request.follow())
        return std::nullopt;
    return cancelled ? cancelled : error;
}

OptionalError MirrorRunner::connect() {
    _watch.reset();
    _connection.reset();
    OptionalError error;
    _connection = PeerConnection::open(_request.from_directory(), error);
    if (!_connection)
        return error;
    if (_request.follow()) {
        {
            const std::scoped_lock lock(_mutex);
            _seen = {};
            _seen.isGone = false;
        }
        _watch = _connection->watch(_services.changes.versionToken(),
                                    [this](const link::LibraryChanged* change) {
                                        {
                                            const std::scoped_lock lock(_mutex);
                                            if (change)
                                                _seen = {change->library_uid(), change->revision(),
                                                         change->acknowledged_revision(), false};
                                            else
                                                _seen.isGone = true;
                                        }
                                        _cancellation.wake();
                                    });
    }
    return std::nullopt;
}

// Until the device is free, or for as long as it pays to wait.
OptionalError MirrorRunner::mirrorOnce() {
    Pauses pauses;
    const auto deadline = std::chrono::steady_clock::now() + BusyPatience;
    for (;;) {
        const OptionalError error = session();
        if (!error || !isBusy(*error) ||
            (!_request.follow() && std::chrono::steady_clock::now() > deadline))
            return error;
        tellWaiting(*error);
        if (!_cancellation.waitFor(pauses.next(), never))
            return error;
    }
}

OptionalError MirrorRunner::session() {
    const std::unique_ptr<CompanionStream> stream = _connection->exchange();
    MirrorSession session(_services, *stream, _events, _request.media_types());
    _cancellation.setAction([&session](const Error& reason) { session.cancel(reason); });
    const MirrorOutcome outcome = session.run();
    _cancellation.setAction(nullptr);
    if (outcome.error)
        return outcome.error;
    link::MirrorEvent event;
    *event.mutable_summary() = outcome.summary;
    _events(event);
    return std::nullopt;
}

// Whatever is temporary is waited for; anything else ends the run.
void MirrorRunner::follow(OptionalError& error) {
    Pauses pauses;
    for (;;) {
        const bool goesOn =
            _cancellation.waitFor(LookInterval, [this] { return !isWatching() || hasNews(); });
        if (!goesOn)
            return;
        OptionalError failure;
        // Behind a new connection there may be another library, or an older one.
        const bool connects = !isWatching();
        if (connects)
            failure = connect();
        if (!failure && (connects || hasNews()))
            failure = mirrorOnce();
        if (!failure) {
            pauses = {};
            continue;
        }
        if (!isGone(*failure)) {
            error = failure;
            return;
        }
        tellWaiting(*failure);
        {
            const std::scoped_lock lock(_mutex);
            _seen.isGone = true;
        }
        if (!_cancellation.waitFor(pauses.next(), never))
            return;
    }
}

bool MirrorRunner::isWatching() {
    const std::scoped_lock lock(_mutex);
    return !_seen.isGone;
}

// Revisions are compared before a session is begun, so that two devices which follow each other
// come to rest.
bool MirrorRunner::hasNews() {
    Seen seen;
    {
        const std::scoped_lock lock(_mutex);
        seen = _seen;
    }
    if (seen.isGone || seen.uid.empty())
        return false;
    return seen.revision > std::max(_services.peers.peer(seen.uid).received, seen.acknowledged);
}

void MirrorRunner::tellWaiting(const Error& error) {
    link::MirrorEvent event;
    event.mutable_waiting()->set_reason(error.text());
    _events(event);
}

}  // namespace orlith
