// The companion's side of one peer session: prepares, pulls the first device's changes and then the
// assets that the library wants, and leaves the device as it should be whatever happens.
//
// run() is called once; cancel() on any thread. The plug-in's calls are made on the thread of run()
// and, for assets, on one of its own. The numbers of a summary are those of this session.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "device/orlith/mirror/change_puller.h"
#include "device/orlith/mirror/first_device.h"
#include "device/orlith/mirror/mirror_services.h"

namespace orlith {

struct MirrorOutcome {
    platform::OptionalError error;
    link::MirrorSummary summary;
    std::string peerUID;  // "" when the session was not opened
};

class MirrorSession {
public:
    // All of it outlives the session. `mediaTypes`: bits, 0 for all.
    MirrorSession(const MirrorServices& services, CompanionStream& stream,
                  const MirrorEvents& events, std::uint32_t mediaTypes);

    MirrorOutcome run();
    // Ends the session, with this as its error.
    void cancel(const platform::Error& reason);

private:
    void open();
    void prepare();
    void pull(link::MirrorSummary& summary);
    // What it throws is logged.
    void guarded(const char* what, const std::function<void()>& step);
    void windUp(const platform::OptionalError& error);
    void tell(link::MirrorProgress::Phase phase);
    void throwIfCancelled();

    const MirrorServices& _services;
    const MirrorEvents& _events;
    const std::uint32_t _mediaTypes;
    FirstDevice _first;
    ChangePuller _changes;

    // ---- The thread of run().
    bool _holdsSlot = false;
    bool _wasPrepared = false;
    bool _endedInOrder = false;
    bool _allAssets = false;
    std::string _peerUID;
    std::string _peerName;

    std::mutex _mutex;
    platform::OptionalError _cancelled;  // guarded by _mutex
};

}  // namespace orlith
