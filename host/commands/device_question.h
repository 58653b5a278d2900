// Purpose: asks a device one thing, and tells what went wrong.
// Thread: the main thread.
// Failure: told through the output; the exit code follows the error.
#pragma once

#include <functional>
#include <string>

#include "host/commands/exit_code.h"
#include "host/commands/output.h"
#include "host/session/device_channel.h"
#include "host/session/device_directory.h"
#include "platform/errors.h"

namespace host {

// Done, or the error told.
ExitCode outcomeOf(const platform::OptionalError& error, const Output& output);

// The device is made when it is missing.
template <typename Connection>
ExitCode askNewDevice(const std::string& deviceDirectory, const Output& output,
                      const std::function<platform::OptionalError(Connection&)>& question) {
    platform::OptionalError error;
    const auto connection = connectTo<Connection>(deviceDirectory, &error);
    if (connection)
        error = question(*connection);
    return outcomeOf(error, output);
}

// A device that is missing is an error.
template <typename Connection>
ExitCode askDevice(const std::string& deviceDirectory, const Output& output,
                   const std::function<platform::OptionalError(Connection&)>& question) {
    platform::OptionalError error;
    if (existingDevice(deviceDirectory, error).empty())
        return outcomeOf(error, output);
    return askNewDevice<Connection>(deviceDirectory, output, question);
}

}  // namespace host
