#include "device/orlith/owner_playlists.h"

#include <cerrno>

#include "device/korvane/library.h"
#include "device/korvane/owner_edits.h"
#include "link/owner.pb.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;
using Request = link::EditPlaylistRequest;

Error notUnderstood() {
    return Error(platform::POSIXErrorDomain, EINVAL,
                 "the change of the playlist is not understood");
}

std::vector<std::int64_t> tracksOf(korvane::Library& library, const Request& request,
                                   OptionalError& error) {
    std::vector<std::int64_t> tracks;
    for (const std::string& name : request.tracks()) {
        const auto found = korvane::findTrack(library, name, error);
        if (!found)
            break;
        tracks.push_back(found->persistentID);
    }
    return tracks;
}

std::optional<std::size_t> positionOf(const Request& request) {
    return request.has_position() ? std::optional<std::size_t>(request.position()) : std::nullopt;
}

OptionalError change(korvane::Library& library, std::int64_t playlist, const Request& request,
                     const std::vector<std::int64_t>& tracks) {
    switch (request.action()) {
        case Request::ADD:
            return korvane::addToPlaylist(library, playlist, tracks, positionOf(request));
        case Request::REMOVE:
            return request.has_position()
                       ? korvane::removeFromPlaylist(library, playlist, request.position())
                       : korvane::removeTracksFromPlaylist(library, playlist, tracks);
        case Request::MOVE:
            return korvane::moveInPlaylist(library, playlist, request.position(),
                                           request.new_position());
        case Request::RENAME:
            return korvane::renamePlaylist(library, playlist, request.name());
        case Request::DELETE:
            return korvane::removePlaylist(library, playlist);
        default:
            return notUnderstood();
    }
}

}  // namespace

OptionalError editPlaylist(korvane::Library& library, const Request& request, std::string& name) {
    OptionalError error;
    const std::vector<std::int64_t> tracks = tracksOf(library, request, error);
    if (error)
        return error;
    name = request.playlist();
    if (request.action() == Request::CREATE) {
        if (request.rules().empty())
            korvane::createPlaylist(library, name, error, tracks);
        else if (tracks.empty())
            korvane::createSmartPlaylist(library, name, request.rules(), request.limit(), error);
        else
            error = notUnderstood();
        return error;
    }
    const auto found = korvane::findPlaylist(library, request.playlist(), error);
    if (!found)
        return error;
    name = request.action() == Request::RENAME ? request.name() : found->name;
    return change(library, found->persistentID, request, tracks);
}

}  // namespace orlith
