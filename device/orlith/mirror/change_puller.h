// Brings a companion's library up to date with the first device's changes.
//
// On the thread of the mirror session. Throws SessionError.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "device/orlith/mirror/change_messages.h"
#include "device/orlith/mirror/first_device.h"
#include "device/orlith/mirror/mirror_services.h"

namespace orlith {

using MirrorEvents = std::function<void(const link::MirrorEvent&)>;  // any thread

class ChangePuller {
public:
    // All of it outlives this.
    ChangePuller(const MirrorServices& services, FirstDevice& first, const MirrorEvents& events)
        : _services(services), _first(first), _events(events) {}

    // `name`: the first device's, for people; `mediaTypes`: bits of what is wanted, 0 for all.
    // Tells that the mirror has started, and fills in what changed.
    void pull(const std::string& name, std::uint32_t mediaTypes, link::MirrorSummary& summary);
    // Any thread: whether an import runs, which a cancel must end.
    bool isImporting() const { return _importing; }

private:
    // From which revision on, and how.
    struct Start {
        std::int64_t after = 0;
        bool full = false;
    };

    Start startOf(const link::PeerState& state, std::uint32_t mediaTypes) const;
    void exchange(std::uint32_t syncType, std::int64_t after, std::int64_t upTo,
                  link::MirrorSummary& summary);
    void apply(std::uint32_t syncType, const ChangeSpool& spool, link::MirrorSummary& summary);
    void countAsSent();
    void record(std::int64_t revision);
    void tellStarted(const std::string& name, const link::MirrorSummary& summary);
    void tell(link::MirrorProgress::Phase phase, std::uint64_t done);

    const MirrorServices& _services;
    FirstDevice& _first;
    const MirrorEvents& _events;
    std::string _uid;  // of the first device's library
    std::uint32_t _mediaTypes = 0;
    std::atomic<bool> _importing{false};
};

}  // namespace orlith
