#include "device/orlith/server.h"

#include <fmt/format.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/resource_quota.h>
#include <grpcpp/server_posix.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "device/orlith/daemon_log.h"

namespace orlith {
namespace {

using platform::LogLevel;

constexpr int MostThreads = 64;
// The longest message that a host may send, in bytes: a chunk or a list of identifiers.
constexpr int LargestMessage = 4 << 20;
// A pause when the process has no descriptors left for another connection.
constexpr int NoDescriptorsPause = 100;  // milliseconds
// How often a daemon that nobody calls looks whether its work is done.
constexpr int BusyLook = 1000;  // milliseconds

std::unique_ptr<grpc::Server> buildServer(const std::vector<grpc::Service*>& services) {
    grpc::ResourceQuota quota("orlithd");
    quota.SetMaxThreads(MostThreads);
    grpc::ServerBuilder builder;
    builder.SetResourceQuota(quota);
    builder.SetMaxReceiveMessageSize(LargestMessage);
    for (grpc::Service* service : services)
        builder.RegisterService(service);
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server)
        throw std::runtime_error("the RPC server could not start");
    return server;
}

// How long poll may wait, in milliseconds; -1 without end, 0 when the time is over.
int waitTime(CallCounter& calls, std::optional<std::chrono::seconds> idleExit) {
    if (!idleExit)
        return -1;
    const auto idleSince = calls.idleSince();
    const auto left = idleSince ? *idleSince + *idleExit - CallCounter::Clock::now()
                                : CallCounter::Clock::duration(*idleExit);
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, 3600 * 1000));
}

}  // namespace

Server::Server(const std::vector<grpc::Service*>& services, CallCounter& calls,
               platform::LogService& log, common::UniqueFd listener)
    : _calls(calls),
      _log(log),
      _listener(std::move(listener)),
      _wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _server(buildServer(services)) {
    if (!_wake)
        throw std::runtime_error("no event descriptor");
}

Server::~Server() {
    shutDown(std::chrono::milliseconds(0));
}

Server::Ending Server::serve(int endWhenReadable, std::optional<std::chrono::seconds> idleExit,
                             const std::function<bool()>& isBusy) {
    for (;;) {
        pollfd waiting[] = {
            {_listener.get(), POLLIN, 0}, {_wake.get(), POLLIN, 0}, {endWhenReadable, POLLIN, 0}};
        int wait = waitTime(_calls, idleExit);
        if (wait == 0 && !isBusy())
            return Ending::Idle;
        if (wait == 0)
            wait = BusyLook;
        if (::poll(waiting, std::size(waiting), wait) < 0 && errno != EINTR)
            throw std::runtime_error("poll failed");
        if (waiting[1].revents != 0 || waiting[2].revents != 0)
            return Ending::Asked;
        if (waiting[0].revents != 0)
            acceptAll();
    }
}

void Server::acceptAll() {
    for (;;) {
        common::UniqueFd connection(
            ::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!connection) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                logLine(_log, LogLevel::Error, "accept", "no descriptor for another connection");
                ::poll(nullptr, 0, NoDescriptorsPause);
            }
            return;
        }
        if (isWelcome(connection.get()))
            grpc::AddInsecureChannelFromFd(_server.get(), connection.release());
    }
}

bool Server::isWelcome(int connection) const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid == ::geteuid() || peer.uid == 0)
        return true;
    logLine(_log, LogLevel::Warning, "accept",
            fmt::format("refused process {} of user {}", peer.pid, peer.uid));
    return false;
}

void Server::stop() {
    const std::uint64_t one = 1;
    // It fails only when it is readable already.
    [[maybe_unused]] const ssize_t written = ::write(_wake.get(), &one, sizeof one);
}

void Server::shutDown(std::chrono::milliseconds grace) {
    if (!_server)
        return;
    _server->Shutdown(std::chrono::system_clock::now() + grace);
    _server->Wait();
    _server.reset();
}

}  // namespace orlith
