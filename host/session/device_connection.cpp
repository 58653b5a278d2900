#include "host/session/device_connection.h"

#include <fcntl.h>
#include <grpcpp/create_channel.h>
#include <grpcpp/create_channel_posix.h>
#include <grpcpp/security/credentials.h>

#include <cerrno>
#include <cstdlib>

#include "host/session/link_error.h"
#include "host/session/session_stream.h"
#include "link/orlith.grpc.pb.h"
#include "link/start_daemon.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// How long a daemon that this program started stays without work.
std::chrono::seconds idleExit() {
    const char* given = std::getenv("ORLITH_IDLE_SECONDS");
    const long seconds = given != nullptr ? std::strtol(given, nullptr, 10) : 0;
    return std::chrono::seconds(seconds > 0 ? seconds : 60);
}

platform::OptionalError errorOf(const grpc::Status& status) {
    if (status.ok())
        return std::nullopt;
    return errorOfStatus(status);
}

platform::OptionalError errorOf(const grpc::Status& status, const link::EditReply& reply) {
    if (auto error = errorOf(status))
        return error;
    if (reply.success())
        return std::nullopt;
    return errorOfFailure(reply.failure());
}

}  // namespace

struct DeviceConnection::Impl {
    std::shared_ptr<grpc::Channel> channel;
    std::shared_ptr<link::Device::Stub> stub;
};

std::unique_ptr<DeviceConnection> DeviceConnection::open(const std::string& deviceDirectory,
                                                         platform::OptionalError* error) {
    link::DaemonStart start;
    start.root = deviceDirectory;
    start.idleExit = idleExit();
    common::UniqueFd fd = link::connectOrStart(start, error);
    if (!fd)
        return nullptr;
    const int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
        if (error != nullptr)
            *error = platform::Error::posix(errno);
        return nullptr;
    }
    return std::make_unique<DeviceConnection>(
        grpc::CreateInsecureChannelFromFd("device", fd.release()));
}

DeviceConnection::DeviceConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>()) {
    _impl->channel = std::move(channel);
    _impl->stub = link::Device::NewStub(_impl->channel);
}

DeviceConnection::~DeviceConnection() = default;

platform::OptionalError DeviceConnection::status(link::StatusReply& reply) {
    grpc::ClientContext context;
    return errorOf(_impl->stub->Status(&context, {}, &reply));
}

platform::OptionalError DeviceConnection::listTracks(
    const std::function<void(const link::TrackRow&)>& row) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->ListTracks(&context, {});
    link::TrackBatch batch;
    while (reader->Read(&batch))
        for (const link::TrackRow& track : batch.tracks())
            row(track);
    return errorOf(reader->Finish());
}

platform::OptionalError DeviceConnection::listPlaylists(
    const std::function<void(const link::PlaylistRow&)>& row) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->ListPlaylists(&context, {});
    link::PlaylistBatch batch;
    while (reader->Read(&batch))
        for (const link::PlaylistRow& playlist : batch.playlists())
            row(playlist);
    return errorOf(reader->Finish());
}

platform::OptionalError DeviceConnection::rate(const std::string& track, std::uint32_t stars,
                                               link::EditReply& reply) {
    grpc::ClientContext context;
    link::RateRequest request;
    request.set_track(track);
    request.set_stars(stars);
    const grpc::Status status = _impl->stub->Rate(&context, request, &reply);
    return errorOf(status, reply);
}

platform::OptionalError DeviceConnection::played(const std::string& track, link::EditReply& reply) {
    grpc::ClientContext context;
    link::PlayedRequest request;
    request.set_track(track);
    const grpc::Status status = _impl->stub->Played(&context, request, &reply);
    return errorOf(status, reply);
}

std::unique_ptr<SessionStream> DeviceConnection::startSession() {
    return std::make_unique<SessionStream>(_impl->stub);
}

}  // namespace host
