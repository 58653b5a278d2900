#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "host/commands/commands.h"
#include "host/commands/edit_outcome.h"
#include "host/commands/output.h"
#include "host/progress/progress.h"
#include "host/session/device_connection.h"
#include "link/owner.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

using Request = link::EditPlaylistRequest;
using Action = PlaylistEdit::Action;

Request::Action actionOf(Action action) {
    switch (action) {
        case Action::Create:
            return Request::CREATE;
        case Action::Add:
            return Request::ADD;
        case Action::Remove:
            return Request::REMOVE;
        case Action::Move:
            return Request::MOVE;
        case Action::Rename:
            return Request::RENAME;
        case Action::Delete:
            return Request::DELETE;
    }
    return Request::NONE;
}

// Positions count from 0 on the link.
Request requestOf(const PlaylistEdit& edit) {
    Request request;
    request.set_action(actionOf(edit.action));
    request.set_playlist(edit.playlist);
    request.mutable_tracks()->Assign(edit.tracks.begin(), edit.tracks.end());
    if (edit.position)
        request.set_position(*edit.position - 1);
    request.set_new_position(edit.newPosition - 1);
    request.set_name(edit.name);
    request.set_rules(edit.rules);
    request.set_limit(fmt::format("{}", fmt::join(edit.limit, " ")));
    return request;
}

std::string doneText(const PlaylistEdit& edit) {
    switch (edit.action) {
        case Action::Create:
            if (!edit.rules.empty())
                return "made; the device keeps it filled by its rules";
            return edit.tracks.empty() ? "made"
                                       : "made, with " + plural(edit.tracks.size(), "track");
        case Action::Add:
            return plural(edit.tracks.size(), "track") + " added";
        case Action::Remove:
            return edit.position ? fmt::format("track {} removed", *edit.position)
                                 : plural(edit.tracks.size(), "track") + " removed";
        case Action::Move:
            return fmt::format("track {} is now track {}", *edit.position, edit.newPosition);
        case Action::Rename:
            return "renamed";
        case Action::Delete:
            return "deleted";
    }
    return "";
}

nlohmann::ordered_json summaryOf(const link::EditReply& reply) {
    return {{"type", "summary"},
            {"playlist", reply.title()},
            {"revision", std::to_string(reply.revision())}};
}

}  // namespace

ExitCode runPlaylist(const CommonOptions& common, const PlaylistEdit& edit) {
    if (edit.action == Action::Remove && edit.tracks.empty() && !edit.position) {
        complain("say which tracks to remove, or --at which position");
        return ExitCode::Usage;
    }
    const Request request = requestOf(edit);
    return editDevice(common, doneText(edit), summaryOf,
                      [&](DeviceConnection& device, link::EditReply& reply) {
                          return device.editPlaylist(request, reply);
                      });
}

}  // namespace host
