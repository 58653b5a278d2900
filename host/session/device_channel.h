// Purpose: the channel to the daemon of a device directory.
// Thread: any.
// Failure: Errors in plain words; null is returned.
#pragma once

#include <memory>
#include <string>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace host {

// Starts a daemon when none runs; a directory that is missing is made.
std::shared_ptr<grpc::Channel> openDeviceChannel(const std::string& deviceDirectory,
                                                 platform::OptionalError* error);

}  // namespace host
