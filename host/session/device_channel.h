// Purpose: the channel to the daemon of a device directory, and the connections over it.
// Thread: any.
// Failure: Errors in plain words; null is returned.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace host {

// Starts a daemon when none runs; a directory that is missing is made.
std::shared_ptr<grpc::Channel> openDeviceChannel(const std::string& deviceDirectory,
                                                 platform::OptionalError* error);

// A connection of the kind over a channel of its own. Null on failure.
template <typename Connection>
std::unique_ptr<Connection> connectTo(const std::string& deviceDirectory,
                                      platform::OptionalError* error) {
    auto channel = openDeviceChannel(deviceDirectory, error);
    return channel ? std::make_unique<Connection>(std::move(channel)) : nullptr;
}

}  // namespace host
