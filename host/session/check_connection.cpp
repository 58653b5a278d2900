#include "host/session/check_connection.h"

#include <grpcpp/channel.h>

#include "host/session/call_cancellation.h"
#include "host/session/link_call.h"
#include "link/check.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

struct CheckConnection::Impl {
    std::unique_ptr<link::Check::Stub> calls;
};

CheckConnection::CheckConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>(link::Check::NewStub(std::move(channel)))) {}

CheckConnection::~CheckConnection() = default;

platform::OptionalError CheckConnection::run(
    const link::CheckRequest& request, const std::function<void(const link::CheckEvent&)>& onEvent,
    link::CheckEnd& end, CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    bool hasEnd = false;
    const auto take = [&](const link::CheckEvent& event) {
        onEvent(event);
        hasEnd = hasEnd || event.has_end();
        if (event.has_end())
            end = event.end();
    };
    const auto error =
        streamingCall(*_impl->calls, &link::Check::Stub::Run, request, take, context);
    if (error && cancellation.isCancelled())
        return cancelledError();
    // A daemon that leaves after its last word has said all.
    if (error && !hasEnd)
        return error;
    if (!hasEnd)
        return platform::Error(LinkErrorDomain, LinkErrorProtocol, "the check has no end");
    return errorOfReply(grpc::Status::OK, end.success(), end.failure());
}

}  // namespace host
