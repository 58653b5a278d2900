#include "host/session/device_connection.h"

#include <grpcpp/channel.h>

#include "host/session/link_call.h"
#include "host/session/session_stream.h"
#include "link/orlith.grpc.pb.h"
#include "link/owner.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct DeviceConnection::Impl {
    std::shared_ptr<link::Device::Stub> device;  // shared with the sessions
    std::unique_ptr<link::Owner::Stub> owner;
};

DeviceConnection::DeviceConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>()) {
    _impl->device = link::Device::NewStub(channel);
    _impl->owner = link::Owner::NewStub(std::move(channel));
}

DeviceConnection::~DeviceConnection() = default;

platform::OptionalError DeviceConnection::status(const link::StatusRequest& request,
                                                 link::StatusReply& reply) {
    return unaryCall(*_impl->device, &link::Device::Stub::Status, request, reply);
}

platform::OptionalError DeviceConnection::listTracks(
    const std::function<void(const link::TrackRow&)>& row) {
    return streamingCall(*_impl->device, &link::Device::Stub::ListTracks, {},
                         [&](const link::TrackBatch& batch) {
                             for (const link::TrackRow& track : batch.tracks())
                                 row(track);
                         });
}

platform::OptionalError DeviceConnection::listPlaylists(
    const std::function<void(const link::PlaylistRow&)>& row) {
    return streamingCall(*_impl->device, &link::Device::Stub::ListPlaylists, {},
                         [&](const link::PlaylistBatch& batch) {
                             for (const link::PlaylistRow& playlist : batch.playlists())
                                 row(playlist);
                         });
}

platform::OptionalError DeviceConnection::rate(const std::string& track, std::uint32_t stars,
                                               link::EditReply& reply) {
    link::RateRequest request;
    request.set_track(track);
    request.set_stars(stars);
    return unaryCall(*_impl->device, &link::Device::Stub::Rate, request, reply);
}

platform::OptionalError DeviceConnection::played(const std::string& track, link::EditReply& reply) {
    link::PlayedRequest request;
    request.set_track(track);
    return unaryCall(*_impl->device, &link::Device::Stub::Played, request, reply);
}

platform::OptionalError DeviceConnection::editTrack(const link::EditTrackRequest& request,
                                                    link::EditReply& reply) {
    return unaryCall(*_impl->owner, &link::Owner::Stub::EditTrack, request, reply);
}

platform::OptionalError DeviceConnection::editPlaylist(const link::EditPlaylistRequest& request,
                                                       link::EditReply& reply) {
    return unaryCall(*_impl->owner, &link::Owner::Stub::EditPlaylist, request, reply);
}

platform::OptionalError DeviceConnection::deleteTrack(const std::string& track,
                                                      link::EditReply& reply) {
    link::DeleteTrackRequest request;
    request.set_track(track);
    return unaryCall(*_impl->owner, &link::Owner::Stub::DeleteTrack, request, reply);
}

platform::OptionalError DeviceConnection::download(const link::DownloadRequest& request,
                                                   link::DownloadReply& reply) {
    return unaryCall(*_impl->owner, &link::Owner::Stub::Download, request, reply);
}

platform::OptionalError DeviceConnection::listDownloads(
    const std::function<void(const link::DownloadRow&)>& row) {
    link::DownloadList list;
    if (auto error = unaryCall(*_impl->owner, &link::Owner::Stub::ListDownloads, {}, list))
        return error;
    for (const link::DownloadRow& download : list.downloads())
        row(download);
    return std::nullopt;
}

platform::OptionalError DeviceConnection::cancelDownload(std::int64_t download) {
    link::CancelDownloadRequest request;
    request.set_download(download);
    link::CancelDownloadReply reply;
    return unaryCall(*_impl->owner, &link::Owner::Stub::CancelDownload, request, reply);
}

platform::OptionalError DeviceConnection::cloudState(link::CloudReply& reply) {
    return unaryCall(*_impl->owner, &link::Owner::Stub::CloudState, {}, reply);
}

platform::OptionalError DeviceConnection::signInToCloud(bool hasKenningData,
                                                        link::CloudReply& reply) {
    link::CloudSignInRequest request;
    request.set_has_kenning_data(hasKenningData);
    return unaryCall(*_impl->owner, &link::Owner::Stub::CloudSignIn, request, reply);
}

platform::OptionalError DeviceConnection::signOutOfCloud(link::CloudReply& reply) {
    return unaryCall(*_impl->owner, &link::Owner::Stub::CloudSignOut, {}, reply);
}

std::unique_ptr<SessionStream> DeviceConnection::startSession() {
    return std::make_unique<SessionStream>(_impl->device);
}

}  // namespace host
