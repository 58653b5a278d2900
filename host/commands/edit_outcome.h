// Purpose: makes one change on a device and tells how it went.
// Thread: the main thread.
// Failure: told through the output; what the device does not have is "not found".
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "host/commands/commands.h"
#include "platform/errors.h"

namespace orlith::link {
class EditReply;
}

namespace host {

class DeviceConnection;

// `done` follows the title in words; `json` gives the object instead.
ExitCode editDevice(const CommonOptions& common, const std::string& done,
                    nlohmann::ordered_json (*json)(const orlith::link::EditReply& reply),
                    const std::function<platform::OptionalError(DeviceConnection&,
                                                                orlith::link::EditReply&)>& change);

}  // namespace host
