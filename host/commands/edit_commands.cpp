#include <fmt/format.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/output.h"
#include "host/scan/file_names.h"
#include "host/session/device_connection.h"
#include "host/session/link_error.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using platform::OptionalError;

ExitCode edit(const CommonOptions& common, const std::string& done,
              const std::function<OptionalError(DeviceConnection&, link::EditReply&)>& change) {
    const Output output(common.json);
    OptionalError error;
    link::EditReply reply;
    const auto connection = DeviceConnection::open(common.deviceDirectory, &error);
    if (connection) {
        error = change(*connection, reply);
        if (error && error->domain == LibraryErrorDomain && error->code == LibraryErrorRefused)
            error = platform::Error(LinkErrorDomain, LinkErrorNotFound, error->text());
    }
    if (error) {
        output.error(*error);
        return exitCodeOf(*error);
    }
    if (common.json)
        output.object({{"type", "edit"}, {"title", reply.title()}, {"revision", reply.revision()}});
    else
        output.line(fmt::format("{}: {}", displayText(reply.title()), done));
    return ExitCode::Done;
}

}  // namespace

ExitCode runRate(const CommonOptions& common, const std::string& track, std::uint32_t stars) {
    const std::string done =
        stars == 0 ? "no rating" : fmt::format("{} star{}", stars, stars == 1 ? "" : "s");
    return edit(common, done, [&](DeviceConnection& device, link::EditReply& reply) {
        return device.rate(track, stars, reply);
    });
}

ExitCode runPlayed(const CommonOptions& common, const std::string& track) {
    return edit(common, "played once more", [&](DeviceConnection& device, link::EditReply& reply) {
        return device.played(track, reply);
    });
}

}  // namespace host
