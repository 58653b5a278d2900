// The daemon's listening socket and the RPC server behind it. The daemon accepts connections
// itself: it asks the kernel who connects, and takes only its own user and root.
//
// serve() runs on one thread; stop() may be called from any, and from a call's own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "device/orlith/call_counter.h"
#include "platform/log.h"

namespace grpc {
class Server;
class Service;
}  // namespace grpc

namespace orlith {

class Server {
public:
    enum class Ending { Asked, Idle };

    // The services count their calls in `calls`; all of it outlives the server. `listener` does not
    // block. Throws std::runtime_error when the RPC server cannot start.
    Server(const std::vector<grpc::Service*>& services, CallCounter& calls,
           platform::LogService& log, common::UniqueFd listener);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Accepts connections until stop(), until `endWhenReadable` (none: negative) is readable, or
    // until no call has been answered for so long while `isBusy` says no.
    Ending serve(
        int endWhenReadable, std::optional<std::chrono::seconds> idleExit,
        const std::function<bool()>& isBusy = [] { return false; });
    void stop();
    // Ends the calls: those that are not over after `grace` are cut off. Waits for all of them.
    void shutDown(std::chrono::milliseconds grace);

private:
    void acceptAll();
    bool isWelcome(int connection) const;

    CallCounter& _calls;
    platform::LogService& _log;
    common::UniqueFd _listener;
    common::UniqueFd _wake;
    std::unique_ptr<grpc::Server> _server;
};

}  // namespace orlith
