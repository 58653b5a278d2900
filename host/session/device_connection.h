// Purpose: the connection to a device's daemon: questions, edits and the start of a session.
// Thread: any; gRPC serialises nothing, so calls may run side by side.
// Ownership: a session keeps the connection's channel alive by itself.
// Failure: Errors of LinkErrorDomain, or what the device reported.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class CloudReply;
class DownloadReply;
class DownloadRequest;
class DownloadRow;
class EditPlaylistRequest;
class EditReply;
class EditTrackRequest;
class PlaylistRow;
class StatusReply;
class StatusRequest;
class TrackRow;
}  // namespace orlith::link

namespace host {

class SessionStream;

class DeviceConnection {
public:
    explicit DeviceConnection(std::shared_ptr<grpc::Channel> channel);
    ~DeviceConnection();
    DeviceConnection(const DeviceConnection&) = delete;
    DeviceConnection& operator=(const DeviceConnection&) = delete;

    platform::OptionalError status(const orlith::link::StatusRequest& request,
                                   orlith::link::StatusReply& reply);
    platform::OptionalError listTracks(
        const std::function<void(const orlith::link::TrackRow&)>& row);
    platform::OptionalError listPlaylists(
        const std::function<void(const orlith::link::PlaylistRow&)>& row);
    // `track` is a persistent id, a sync id or a title; `stars` 0 to 5.
    platform::OptionalError rate(const std::string& track, std::uint32_t stars,
                                 orlith::link::EditReply& reply);
    platform::OptionalError played(const std::string& track, orlith::link::EditReply& reply);
    platform::OptionalError editTrack(const orlith::link::EditTrackRequest& request,
                                      orlith::link::EditReply& reply);
    platform::OptionalError editPlaylist(const orlith::link::EditPlaylistRequest& request,
                                         orlith::link::EditReply& reply);
    platform::OptionalError deleteTrack(const std::string& track, orlith::link::EditReply& reply);
    platform::OptionalError download(const orlith::link::DownloadRequest& request,
                                     orlith::link::DownloadReply& reply);
    platform::OptionalError listDownloads(
        const std::function<void(const orlith::link::DownloadRow&)>& row);
    platform::OptionalError cancelDownload(std::int64_t download);
    platform::OptionalError cloudState(orlith::link::CloudReply& reply);
    platform::OptionalError signInToCloud(bool hasKenningData, orlith::link::CloudReply& reply);
    platform::OptionalError signOutOfCloud(orlith::link::CloudReply& reply);
    std::unique_ptr<SessionStream> startSession();

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
