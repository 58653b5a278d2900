#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/list_rows.h"
#include "host/commands/output.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/similar_connection.h"
#include "link/similar.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

constexpr double MostAlike = 65535;

void showJson(const Output& output, const link::SimilarReply& reply) {
    for (const link::SimilarTrack& track : reply.tracks())
        output.object({{"type", "similar"},
                       {"persistent_id", std::to_string(track.persistent_id())},
                       {"title", track.title()},
                       {"artist", track.artist()},
                       {"album", track.album()},
                       {"likeness", track.likeness()}});
    output.object({{"type", "summary"},
                   {"title", reply.title()},
                   {"tracks", reply.tracks_size()},
                   {"available", reply.available()},
                   {"minimum", reply.minimum()}});
}

void show(const Output& output, const link::SimilarReply& reply) {
    const std::string title = displayText(reply.title());
    if (reply.tracks().empty())
        return output.line(
            reply.available() == 0
                ? fmt::format("nothing on the device is like {}", title)
                : fmt::format("only {} on the device {} like {}, fewer than the {} that are worth "
                              "offering; --count shows them",
                              plural(reply.available(), "track"),
                              reply.available() == 1 ? "is" : "are", title, reply.minimum()));
    for (const link::SimilarTrack& track : reply.tracks())
        output.line(fmt::format("{:>4.0f}%  {} {} {} {}", 100 * track.likeness() / MostAlike,
                                fitted(displayText(track.title()), 30),
                                fitted(displayText(track.artist()), 20),
                                fitted(displayText(track.album()), 22), track.persistent_id()));
    output.line(fmt::format("{} like {}",
                            plural(static_cast<std::size_t>(reply.tracks_size()), "track"), title));
}

}  // namespace

ExitCode runSimilar(const CommonOptions& common, const SimilarOptions& options) {
    const Output output(common.json);
    link::SimilarRequest request;
    request.set_track(options.track);
    if (options.count)
        request.set_count(*options.count);
    link::SimilarReply reply;
    const ExitCode code = askDevice<SimilarConnection>(
        common.deviceDirectory, output,
        [&](SimilarConnection& device) { return device.find(request, reply); });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        showJson(output, reply);
    else
        show(output, reply);
    return code;
}

}  // namespace host
