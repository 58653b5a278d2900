// A companion's connection to another device's daemon.
//
// Made and used on any thread; what it gives must be gone before it is.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "device/orlith/mirror/peer_stream.h"
#include "platform/errors.h"

namespace orlith {

class PeerConnection {
public:
    // To the daemon of a device directory (an absolute path of the real disk), which is started
    // when none listens. Null on failure; a directory that is no device is never made one.
    static std::unique_ptr<PeerConnection> open(const std::string& directory,
                                                platform::OptionalError& error);
    ~PeerConnection();

    std::unique_ptr<CompanionStream> exchange();

    // Calls back for each change of the library there, on a thread of its own, until it is released
    // or the connection ends, which is told with null.
    class Watch {
    public:
        virtual ~Watch() = default;
    };
    std::unique_ptr<Watch> watch(const std::string& ownUID,
                                 std::function<void(const link::LibraryChanged*)> changed);

private:
    struct State;
    explicit PeerConnection(std::unique_ptr<State> state);

    const std::unique_ptr<State> _state;
};

}  // namespace orlith
