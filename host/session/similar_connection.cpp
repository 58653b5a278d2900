#include "host/session/similar_connection.h"

#include <grpcpp/channel.h>

#include "host/session/link_call.h"
#include "link/similar.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct SimilarConnection::Impl {
    std::unique_ptr<link::Similar::Stub> calls;
};

SimilarConnection::SimilarConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>(link::Similar::NewStub(std::move(channel)))) {}

SimilarConnection::~SimilarConnection() = default;

platform::OptionalError SimilarConnection::find(const link::SimilarRequest& request,
                                                link::SimilarReply& reply) {
    return unaryCall(*_impl->calls, &link::Similar::Stub::Find, request, reply);
}

}  // namespace host
