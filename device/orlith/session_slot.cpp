#include "device/orlith/session_slot.h"

#include <fmt/format.h>
#include <signal.h>

#include <cerrno>
#include <utility>

namespace orlith {
namespace {

// How often a holder's process is looked for.
constexpr std::chrono::milliseconds LookInterval{50};

// The number is the host's own word: it decides how long others wait and nothing else.
bool processIsGone(std::uint32_t processID) {
    const auto id = static_cast<pid_t>(processID);
    return id > 0 && ::kill(id, 0) != 0 && errno == ESRCH;
}

}  // namespace

std::string SessionOwner::description() const {
    const auto held =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - since);
    return fmt::format("{} (process {}), for {} s", hostName.empty() ? "a host" : hostName,
                       processID, held.count());
}

bool SessionSlot::acquire(const SessionOwner& owner, std::function<void(const std::string&)> stop,
                          std::string& holder, std::chrono::milliseconds patience) {
    std::unique_lock lock(_mutex);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (isWindingUp() && std::chrono::steady_clock::now() < deadline)
        _released.wait_for(lock, LookInterval);
    if (_owner || !_stopReason.empty()) {
        holder = _owner ? _owner->description() : _stopReason;
        return false;
    }
    _owner = owner;
    _stop = std::move(stop);
    _hostLeft = false;
    return true;
}

// A killed host is noticed by its process before its stream breaks.
bool SessionSlot::isWindingUp() const {
    return _owner && _stopReason.empty() && (_hostLeft || processIsGone(_owner->processID));
}

void SessionSlot::hostLeft() {
    const std::scoped_lock lock(_mutex);
    _hostLeft = true;
}

void SessionSlot::release() {
    const std::scoped_lock lock(_mutex);
    _owner.reset();
    _stop = nullptr;
    _released.notify_all();
}

std::string SessionSlot::ownerDescription() {
    const std::scoped_lock lock(_mutex);
    return _owner ? _owner->description() : std::string();
}

bool SessionSlot::isTaken() {
    const std::scoped_lock lock(_mutex);
    return _owner.has_value();
}

void SessionSlot::stop(const std::string& reason) {
    const std::scoped_lock lock(_mutex);
    _stopReason = reason;
    _released.notify_all();
    if (_stop)
        _stop(reason);
}

}  // namespace orlith
