#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/list_rows.h"
#include "host/commands/output.h"
#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "host/session/device_connection.h"
#include "link/orlith.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

ExitCode runListTracks(const CommonOptions& common) {
    const Output output(common.json);
    std::vector<link::TrackRow> rows;
    std::size_t count = 0;
    const ExitCode code = askDevice(common.deviceDirectory, output, [&](DeviceConnection& device) {
        return device.listTracks([&](const link::TrackRow& row) {
            ++count;
            if (common.json)
                output.object(jsonOf(row));
            else
                rows.push_back(row);
        });
    });
    if (code != ExitCode::Done)
        return code;
    if (common.json)
        output.object({{"type", "summary"}, {"tracks", count}});
    else
        for (const std::string& line : trackTable(rows))
            output.line(line);
    return code;
}

ExitCode runListPlaylists(const CommonOptions& common) {
    const Output output(common.json);
    // A long playlist comes in several rows, one after another.
    std::vector<link::PlaylistRow> playlists;
    const ExitCode code = askDevice(common.deviceDirectory, output, [&](DeviceConnection& device) {
        return device.listPlaylists([&](const link::PlaylistRow& row) {
            if (!playlists.empty() && playlists.back().persistent_id() == row.persistent_id())
                playlists.back().mutable_tracks()->MergeFrom(row.tracks());
            else
                playlists.push_back(row);
        });
    });
    if (code != ExitCode::Done)
        return code;
    for (const link::PlaylistRow& playlist : playlists) {
        if (common.json)
            output.object(jsonOf(playlist));
        else
            output.line(fmt::format("{:>6} tracks  {}{}", playlist.tracks_size(),
                                    displayText(playlist.name()),
                                    playlist.smart() ? "  (smart)" : ""));
    }
    if (common.json)
        output.object({{"type", "summary"}, {"playlists", playlists.size()}});
    else if (playlists.empty())
        output.line("no playlists");
    return code;
}

ExitCode runStatus(const CommonOptions& common) {
    const Output output(common.json);
    return askDevice(common.deviceDirectory, output,
                     [&](DeviceConnection& device) -> OptionalError {
                         link::StatusReply status;
                         if (auto error = device.status(status))
                             return error;
                         if (common.json)
                             output.object(jsonOf(status));
                         else
                             for (const std::string& line : statusLines(status))
                                 output.line(line);
                         return std::nullopt;
                     });
}

}  // namespace host
