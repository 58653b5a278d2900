#include "host/commands/device_question.h"

#include "host/session/check_connection.h"
#include "host/session/device_connection.h"
#include "host/session/device_directory.h"
#include "host/session/mirror_connection.h"
#include "host/session/reports_connection.h"
#include "host/session/similar_connection.h"

namespace host {

namespace {

using platform::OptionalError;

template <typename Connection>
ExitCode ask(const std::string& deviceDirectory, const Output& output,
             const std::function<OptionalError(Connection&)>& question, bool mayBeMade = false) {
    OptionalError error;
    if (!mayBeMade && existingDevice(deviceDirectory, error).empty())
        return outcomeOf(error, output);
    const auto connection = Connection::open(deviceDirectory, &error);
    if (connection)
        error = question(*connection);
    return outcomeOf(error, output);
}

}  // namespace

ExitCode askDevice(const std::string& deviceDirectory, const Output& output,
                   const std::function<OptionalError(DeviceConnection&)>& question) {
    return ask<DeviceConnection>(deviceDirectory, output, question);
}

ExitCode askMirror(const std::string& deviceDirectory, const Output& output,
                   const std::function<OptionalError(MirrorConnection&)>& question) {
    return ask<MirrorConnection>(deviceDirectory, output, question);
}

ExitCode askCheck(const std::string& deviceDirectory, const Output& output,
                  const std::function<OptionalError(CheckConnection&)>& question) {
    return ask<CheckConnection>(deviceDirectory, output, question);
}

ExitCode askSimilar(const std::string& deviceDirectory, const Output& output,
                    const std::function<OptionalError(SimilarConnection&)>& question) {
    return ask<SimilarConnection>(deviceDirectory, output, question);
}

ExitCode askReports(const std::string& deviceDirectory, const Output& output,
                    const std::function<OptionalError(ReportsConnection&)>& question) {
    return ask<ReportsConnection>(deviceDirectory, output, question);
}

ExitCode askNewMirror(const std::string& deviceDirectory, const Output& output,
                      const std::function<OptionalError(MirrorConnection&)>& question) {
    return ask<MirrorConnection>(deviceDirectory, output, question, true);
}

ExitCode outcomeOf(const OptionalError& error, const Output& output) {
    if (!error)
        return ExitCode::Done;
    output.error(*error);
    return exitCodeOf(*error);
}

}  // namespace host
