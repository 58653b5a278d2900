// Purpose: asks a device that is there one thing, and tells what went wrong.
// Thread: the main thread.
// Failure: told through the output; the exit code follows the error.
#pragma once

#include <functional>
#include <string>

#include "host/commands/exit_code.h"
#include "host/commands/output.h"
#include "platform/errors.h"

namespace host {

class CheckConnection;
class DeviceConnection;
class MirrorConnection;
class ReportsConnection;
class SimilarConnection;

ExitCode askDevice(const std::string& deviceDirectory, const Output& output,
                   const std::function<platform::OptionalError(DeviceConnection&)>& question);
ExitCode askMirror(const std::string& deviceDirectory, const Output& output,
                   const std::function<platform::OptionalError(MirrorConnection&)>& question);
ExitCode askCheck(const std::string& deviceDirectory, const Output& output,
                  const std::function<platform::OptionalError(CheckConnection&)>& question);
ExitCode askSimilar(const std::string& deviceDirectory, const Output& output,
                    const std::function<platform::OptionalError(SimilarConnection&)>& question);
ExitCode askReports(const std::string& deviceDirectory, const Output& output,
                    const std::function<platform::OptionalError(ReportsConnection&)>& question);

// The device is made when it is missing.
ExitCode askNewMirror(const std::string& deviceDirectory, const Output& output,
                      const std::function<platform::OptionalError(MirrorConnection&)>& question);

// Done, or the error told.
ExitCode outcomeOf(const platform::OptionalError& error, const Output& output);

}  // namespace host
