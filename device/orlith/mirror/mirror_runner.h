// One run of a mirror as its owner asks for it: connects, waits for a device that is busy, and
// follows when it is to.
//
// run() on one thread, once.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "device/orlith/mirror/cancellation.h"
#include "device/orlith/mirror/mirror_session.h"
#include "device/orlith/mirror/peer_connection.h"

namespace orlith {

class MirrorRunner {
public:
    // All of it outlives the run.
    MirrorRunner(const MirrorServices& services, const link::MirrorRequest& request,
                 const MirrorEvents& events, Cancellation& cancellation);

    // None when it ended well; with `follow` that is when it was cancelled.
    platform::OptionalError run();

private:
    // What the watch has told; guarded by _mutex.
    struct Seen {
        std::string uid;
        std::int64_t revision = 0;
        std::int64_t acknowledged = 0;
        bool isGone = true;  // no watch, or its connection has ended
    };

    platform::OptionalError mirrorOnce();
    platform::OptionalError session();
    platform::OptionalError connect();
    void follow(platform::OptionalError& error);
    bool hasNews();
    bool isWatching();
    void tellWaiting(const platform::Error& error);

    const MirrorServices& _services;
    const link::MirrorRequest& _request;
    const MirrorEvents& _events;
    Cancellation& _cancellation;
    std::mutex _mutex;
    Seen _seen;  // guarded by _mutex
    std::unique_ptr<PeerConnection> _connection;
    std::unique_ptr<PeerConnection::Watch> _watch;  // before its connection
};

}  // namespace orlith
