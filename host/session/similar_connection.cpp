#include "host/session/similar_connection.h"

#include <grpcpp/channel.h>

#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "link/similar.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct SimilarConnection::Impl {
    std::unique_ptr<link::Similar::Stub> stub;
};

std::unique_ptr<SimilarConnection> SimilarConnection::open(const std::string& deviceDirectory,
                                                           platform::OptionalError* error) {
    const auto channel = openDeviceChannel(deviceDirectory, error);
    if (!channel)
        return nullptr;
    return std::unique_ptr<SimilarConnection>(
        new SimilarConnection(std::make_unique<Impl>(link::Similar::NewStub(channel))));
}

SimilarConnection::SimilarConnection(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

SimilarConnection::~SimilarConnection() = default;

platform::OptionalError SimilarConnection::find(const link::SimilarRequest& request,
                                                link::SimilarReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->stub->Find(&context, request, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

}  // namespace host
