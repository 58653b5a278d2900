#include "host/commands/edit_outcome.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/commands/device_question.h"
#include "host/scan/file_names.h"
#include "host/session/device_connection.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

ExitCode editDevice(
    const CommonOptions& common, const std::string& done,
    nlohmann::ordered_json (*json)(const link::EditReply& reply),
    const std::function<OptionalError(DeviceConnection&, link::EditReply&)>& change) {
    const Output output(common.json);
    link::EditReply reply;
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return change(device, reply); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object(json(reply));
    else
        output.line(fmt::format("{}: {}", displayText(reply.title()), done));
    return code;
}

}  // namespace host
