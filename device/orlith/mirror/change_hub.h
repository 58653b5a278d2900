// Hears of the library's changes from the plug-in and tells whoever watches; several that come
// together are one.
//
// Any thread; nothing blocks but waiting.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>

#include "platform/sync_daemon.h"

namespace orlith {

class ChangeHub final : public ORSyncClientDelegate {
public:
    // ORSyncClientDelegate
    void syncClientHasChangesWithPriority(ORSyncClient& syncClient, std::int64_t priority) override;

    // Where a watcher stands; made when it begins.
    class Position {
        friend class ChangeHub;
        std::uint64_t _seen = 0;
    };
    Position now();
    // The most urgent priority of the changes since the position, which moves on; absent when there
    // was none for so long, or when the hub was stopped.
    std::optional<std::int64_t> wait(Position& position, std::chrono::milliseconds patience);

    // The daemon ends: nobody waits any more.
    void stop();
    bool isStopped();

private:
    static constexpr std::size_t Priorities = 3;

    std::mutex _mutex;
    std::condition_variable _changed;
    std::uint64_t _count = 0;  // of changes; guarded by _mutex
    // The count at the last change of each priority; guarded by _mutex.
    std::array<std::uint64_t, Priorities> _last{};
    bool _stopped = false;  // guarded by _mutex
};

}  // namespace orlith
