#include "device/orlith/session_slot.h"

#include <fmt/format.h>

#include <utility>

namespace orlith {

std::string SessionOwner::description() const {
    const auto held =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - since);
    return fmt::format("{} (process {}), for {} s", hostName.empty() ? "a host" : hostName,
                       processID, held.count());
}

bool SessionSlot::acquire(const SessionOwner& owner, std::function<void(const std::string&)> stop,
                          std::string& holder) {
    const std::scoped_lock lock(_mutex);
    if (_owner || !_stopReason.empty()) {
        holder = _owner ? _owner->description() : _stopReason;
        return false;
    }
    _owner = owner;
    _stop = std::move(stop);
    return true;
}

void SessionSlot::release() {
    const std::scoped_lock lock(_mutex);
    _owner.reset();
    _stop = nullptr;
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
    if (_stop)
        _stop(reason);
}

}  // namespace orlith
