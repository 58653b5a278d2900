#include <functional>
#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/edit_outcome.h"
#include "host/progress/progress.h"
#include "host/session/device_connection.h"
#include "link/owner.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// How the answer is shown in JSON.
nlohmann::ordered_json summaryOf(const link::EditReply& reply) {
    return {{"type", "summary"},
            {"title", reply.title()},
            {"revision", std::to_string(reply.revision())}};
}

link::EditTrackRequest requestOf(const std::string& track,
                                 const std::vector<std::string>& assignments) {
    link::EditTrackRequest request;
    request.set_track(track);
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        link::FieldValue& value = *request.add_fields();
        value.set_field(assignment.substr(0, equals));
        value.set_value(assignment.substr(equals + 1));
    }
    return request;
}

}  // namespace

ExitCode runRate(const CommonOptions& common, const std::string& track, std::uint32_t stars) {
    const std::string done = stars == 0 ? "no rating" : plural(stars, "star");
    return editDevice(common, done, summaryOf,
                      [&](DeviceConnection& device, link::EditReply& reply) {
                          return device.rate(track, stars, reply);
                      });
}

ExitCode runPlayed(const CommonOptions& common, const std::string& track) {
    return editDevice(common, "played once more", summaryOf,
                      [&](DeviceConnection& device, link::EditReply& reply) {
                          return device.played(track, reply);
                      });
}

ExitCode runEdit(const CommonOptions& common, const std::string& track,
                 const std::vector<std::string>& assignments) {
    const link::EditTrackRequest request = requestOf(track, assignments);
    return editDevice(common, "changed", summaryOf,
                      [&](DeviceConnection& device, link::EditReply& reply) {
                          return device.editTrack(request, reply);
                      });
}

ExitCode runDelete(const CommonOptions& common, const std::string& track) {
    return editDevice(common, "deleted", summaryOf,
                      [&](DeviceConnection& device, link::EditReply& reply) {
                          return device.deleteTrack(track, reply);
                      });
}

}  // namespace host
