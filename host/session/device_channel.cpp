#include "host/session/device_channel.h"

#include <fcntl.h>
#include <grpcpp/create_channel_posix.h>

#include <cerrno>
#include <cstdlib>

#include "link/start_daemon.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// How long a daemon that this program started stays without work.
std::chrono::seconds idleExit() {
    const char* given = std::getenv("ORLITH_IDLE_SECONDS");
    const long seconds = given != nullptr ? std::strtol(given, nullptr, 10) : 0;
    return std::chrono::seconds(seconds > 0 ? seconds : 60);
}

}  // namespace

std::shared_ptr<grpc::Channel> openDeviceChannel(const std::string& deviceDirectory,
                                                 platform::OptionalError* error) {
    link::DaemonStart start;
    start.root = deviceDirectory;
    start.idleExit = idleExit();
    common::UniqueFd fd = link::connectOrStart(start, error);
    if (!fd)
        return nullptr;
    const int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
        if (error != nullptr)
            *error = platform::Error::posix(errno);
        return nullptr;
    }
    return grpc::CreateInsecureChannelFromFd("device", fd.release());
}

}  // namespace host
