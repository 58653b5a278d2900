#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <unordered_map>

#include "host/commands/commands.h"
#include "host/commands/device_question.h"
#include "host/commands/list_rows.h"
#include "host/commands/output.h"
#include "host/scan/file_names.h"
#include "host/session/device_connection.h"
#include "host/session/link_error.h"
#include "host/state/failed_items.h"
#include "host/state/state_store.h"
#include "link/owner.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

namespace {

// As objects with their number, or as a table.
template <typename Row>
void show(const Output& output, const std::vector<Row>& rows, const char* nouns,
          const std::vector<std::string>& table) {
    if (!output.isJson()) {
        for (const std::string& line : table)
            output.line(line);
        return;
    }
    for (const Row& row : rows)
        output.object(jsonOf(row));
    output.object({{"type", "summary"}, {nouns, rows.size()}});
}

void showStatus(const CommonOptions& common, const Output& output, const link::StatusReply& status,
                const link::CloudReply& cloud) {
    const std::vector<FolderFailures> failed =
        failuresOfDevice(defaultStateDirectory(), status.library_uid());
    if (output.isJson()) {
        std::size_t count = 0;
        for (const FolderFailures& folder : failed) {
            count += folder.items.size();
            for (const nlohmann::ordered_json& line : jsonOf(folder))
                output.object(line);
        }
        nlohmann::ordered_json summary = jsonOf(status, cloud);
        summary["failed"] = count;
        return output.object(summary);
    }
    for (const std::string& line : statusLines(common.deviceDirectory, status, cloud))
        output.line(line);
    for (const FolderFailures& folder : failed)
        for (const std::string& line : failureLines(folder))
            output.line(line);
}

// A long playlist comes in several rows, one after another.
OptionalError readPlaylists(DeviceConnection& device, std::vector<link::PlaylistRow>& playlists) {
    return device.listPlaylists([&](const link::PlaylistRow& row) {
        if (!playlists.empty() && playlists.back().persistent_id() == row.persistent_id())
            playlists.back().mutable_tracks()->MergeFrom(row.tracks());
        else
            playlists.push_back(row);
    });
}

platform::Error notFound(const std::string& text) {
    return platform::Error(LinkErrorDomain, LinkErrorNotFound, text);
}

// `name` is an id, or a name that only one has.
OptionalError choosePlaylist(const std::vector<link::PlaylistRow>& playlists,
                             const std::string& name, const link::PlaylistRow*& chosen) {
    chosen = nullptr;
    for (const link::PlaylistRow& playlist : playlists) {
        if (std::to_string(playlist.persistent_id()) == name) {
            chosen = &playlist;
            return std::nullopt;
        }
        if (playlist.name() != name)
            continue;
        if (chosen != nullptr)
            return notFound(fmt::format("several playlists are called \"{}\"; name one by its id",
                                        displayText(name)));
        chosen = &playlist;
    }
    if (chosen == nullptr)
        return notFound(fmt::format("there is no playlist \"{}\"", displayText(name)));
    return std::nullopt;
}

// The tracks of a playlist in its order.
OptionalError readPlaylist(DeviceConnection& device, const std::string& name,
                           std::vector<link::TrackRow>& rows) {
    std::vector<link::PlaylistRow> playlists;
    if (auto error = readPlaylists(device, playlists))
        return error;
    const link::PlaylistRow* playlist = nullptr;
    if (auto error = choosePlaylist(playlists, name, playlist))
        return error;
    std::unordered_map<std::int64_t, link::TrackRow> tracks;
    for (const std::int64_t id : playlist->tracks())
        tracks.try_emplace(id);
    OptionalError error = device.listTracks([&](const link::TrackRow& row) {
        if (const auto found = tracks.find(row.persistent_id()); found != tracks.end())
            found->second = row;
    });
    for (const std::int64_t id : playlist->tracks())
        rows.push_back(tracks[id]);
    return error;
}

}  // namespace

ExitCode runListTracks(const CommonOptions& common) {
    const Output output(common.json);
    std::vector<link::TrackRow> rows;
    std::size_t count = 0;
    const ExitCode code =
        askDevice<DeviceConnection>(common.deviceDirectory, output, [&](DeviceConnection& device) {
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
    std::vector<link::PlaylistRow> playlists;
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return readPlaylists(device, playlists); });
    if (code != ExitCode::Done)
        return code;
    show(output, playlists, "playlists", playlistTable(playlists));
    return code;
}

ExitCode runListPlaylist(const CommonOptions& common, const std::string& name) {
    const Output output(common.json);
    std::vector<link::TrackRow> rows;
    const ExitCode code = askDevice<DeviceConnection>(
        common.deviceDirectory, output,
        [&](DeviceConnection& device) { return readPlaylist(device, name, rows); });
    if (code != ExitCode::Done)
        return code;
    show(output, rows, "tracks", trackTable(rows, true));
    return code;
}

ExitCode runStatus(const CommonOptions& common) {
    const Output output(common.json);
    return askDevice<DeviceConnection>(common.deviceDirectory, output,
                                       [&](DeviceConnection& device) -> OptionalError {
                                           link::StatusRequest request;
                                           request.set_with_kept(true);
                                           link::StatusReply status;
                                           if (auto error = device.status(request, status))
                                               return error;
                                           link::CloudReply cloud;
                                           if (auto error = device.cloudState(cloud))
                                               return error;
                                           showStatus(common, output, status, cloud);
                                           return std::nullopt;
                                       });
}

}  // namespace host
