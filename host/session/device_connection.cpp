#include "host/session/device_connection.h"

#include <grpcpp/channel.h>

#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "host/session/session_stream.h"
#include "link/orlith.grpc.pb.h"
#include "link/owner.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct DeviceConnection::Impl {
    std::shared_ptr<grpc::Channel> channel;
    std::shared_ptr<link::Device::Stub> stub;
    std::unique_ptr<link::Owner::Stub> owner;
};

std::unique_ptr<DeviceConnection> DeviceConnection::open(const std::string& deviceDirectory,
                                                         platform::OptionalError* error) {
    auto channel = openDeviceChannel(deviceDirectory, error);
    return channel ? std::make_unique<DeviceConnection>(std::move(channel)) : nullptr;
}

DeviceConnection::DeviceConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>()) {
    _impl->channel = std::move(channel);
    _impl->stub = link::Device::NewStub(_impl->channel);
    _impl->owner = link::Owner::NewStub(_impl->channel);
}

DeviceConnection::~DeviceConnection() = default;

platform::OptionalError DeviceConnection::status(link::StatusReply& reply) {
    grpc::ClientContext context;
    return errorOfCall(_impl->stub->Status(&context, {}, &reply));
}

platform::OptionalError DeviceConnection::listTracks(
    const std::function<void(const link::TrackRow&)>& row) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->ListTracks(&context, {});
    link::TrackBatch batch;
    while (reader->Read(&batch))
        for (const link::TrackRow& track : batch.tracks())
            row(track);
    return errorOfCall(reader->Finish());
}

platform::OptionalError DeviceConnection::listPlaylists(
    const std::function<void(const link::PlaylistRow&)>& row) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->ListPlaylists(&context, {});
    link::PlaylistBatch batch;
    while (reader->Read(&batch))
        for (const link::PlaylistRow& playlist : batch.playlists())
            row(playlist);
    return errorOfCall(reader->Finish());
}

platform::OptionalError DeviceConnection::rate(const std::string& track, std::uint32_t stars,
                                               link::EditReply& reply) {
    grpc::ClientContext context;
    link::RateRequest request;
    request.set_track(track);
    request.set_stars(stars);
    const grpc::Status status = _impl->stub->Rate(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::played(const std::string& track, link::EditReply& reply) {
    grpc::ClientContext context;
    link::PlayedRequest request;
    request.set_track(track);
    const grpc::Status status = _impl->stub->Played(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::editTrack(const link::EditTrackRequest& request,
                                                    link::EditReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->owner->EditTrack(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::editPlaylist(const link::EditPlaylistRequest& request,
                                                       link::EditReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->owner->EditPlaylist(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::deleteTrack(const std::string& track,
                                                      link::EditReply& reply) {
    grpc::ClientContext context;
    link::DeleteTrackRequest request;
    request.set_track(track);
    const grpc::Status status = _impl->owner->DeleteTrack(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::download(const link::DownloadRequest& request,
                                                   link::DownloadReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->owner->Download(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::listDownloads(
    const std::function<void(const link::DownloadRow&)>& row) {
    grpc::ClientContext context;
    link::DownloadList list;
    if (auto error = errorOfCall(_impl->owner->ListDownloads(&context, {}, &list)))
        return error;
    for (const link::DownloadRow& download : list.downloads())
        row(download);
    return std::nullopt;
}

platform::OptionalError DeviceConnection::cancelDownload(std::int64_t download) {
    grpc::ClientContext context;
    link::CancelDownloadRequest request;
    request.set_download(download);
    link::CancelDownloadReply reply;
    const grpc::Status status = _impl->owner->CancelDownload(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::cloudState(link::CloudReply& reply) {
    grpc::ClientContext context;
    return errorOfCall(_impl->owner->CloudState(&context, {}, &reply));
}

platform::OptionalError DeviceConnection::signInToCloud(bool hasKenningData,
                                                        link::CloudReply& reply) {
    grpc::ClientContext context;
    link::CloudSignInRequest request;
    request.set_has_kenning_data(hasKenningData);
    const grpc::Status status = _impl->owner->CloudSignIn(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

platform::OptionalError DeviceConnection::signOutOfCloud(link::CloudReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->owner->CloudSignOut(&context, {}, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

std::unique_ptr<SessionStream> DeviceConnection::startSession() {
    return std::make_unique<SessionStream>(_impl->stub);
}

}  // namespace host
