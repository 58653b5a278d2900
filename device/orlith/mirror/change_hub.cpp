#include "device/orlith/mirror/change_hub.h"

#include <algorithm>

namespace orlith {

void ChangeHub::syncClientHasChangesWithPriority(ORSyncClient&, std::int64_t priority) {
    const std::scoped_lock lock(_mutex);
    const auto last = static_cast<std::int64_t>(Priorities) - 1;
    _last[static_cast<std::size_t>(std::clamp<std::int64_t>(priority, 0, last))] = ++_count;
    _changed.notify_all();
}

ChangeHub::Position ChangeHub::now() {
    const std::scoped_lock lock(_mutex);
    Position position;
    position._seen = _count;
    return position;
}

std::optional<std::int64_t> ChangeHub::wait(Position& position,
                                            std::chrono::milliseconds patience) {
    std::unique_lock lock(_mutex);
    _changed.wait_for(lock, patience, [&] { return _stopped || _count > position._seen; });
    if (_stopped)
        return std::nullopt;
    std::optional<std::int64_t> urgent;
    for (std::size_t priority = 0; priority < Priorities && !urgent; ++priority)
        if (_last[priority] > position._seen)
            urgent = static_cast<std::int64_t>(priority);
    position._seen = _count;
    return urgent;
}

void ChangeHub::stop() {
    const std::scoped_lock lock(_mutex);
    _stopped = true;
    _changed.notify_all();
}

bool ChangeHub::isStopped() {
    const std::scoped_lock lock(_mutex);
    return _stopped;
}

}  // namespace orlith
