#include "host/session/mirror_connection.h"

#include <grpcpp/channel.h>

#include "host/session/call_cancellation.h"
#include "host/session/link_call.h"
#include "link/peer.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

struct MirrorConnection::Impl {
    std::unique_ptr<link::Mirror::Stub> calls;
};

MirrorConnection::MirrorConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>(link::Mirror::NewStub(std::move(channel)))) {}

MirrorConnection::~MirrorConnection() = default;

OptionalError MirrorConnection::run(const link::MirrorRequest& request,
                                    const std::function<void(const link::MirrorEvent&)>& event,
                                    CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto reader = _impl->calls->Run(&context, request);
    OptionalError failure;
    link::MirrorEvent message;
    while (reader->Read(&message)) {
        if (message.has_failure())
            failure = errorOfFailure(message.failure());
        else
            event(message);
    }
    const grpc::Status status = reader->Finish();
    // What the device says of a run that was ended from here is no news.
    if (cancellation.isCancelled() && !status.ok())
        return cancelledError();
    return failure ? failure : errorOfCall(status);
}

OptionalError MirrorConnection::exportChanges(
    const link::ExportRequest& request,
    const std::function<OptionalError(const link::ChangeStream&)>& piece,
    CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto reader = _impl->calls->Export(&context, request);
    OptionalError failure;
    bool ended = false;
    link::ChangeStream message;
    while (!failure && reader->Read(&message)) {
        failure = piece(message);
        ended = ended || message.has_end();
    }
    if (failure)
        context.TryCancel();
    const grpc::Status status = reader->Finish();
    if (failure)
        return failure;
    if (auto error = errorOfCall(status))
        return error;
    if (!ended)
        return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                               "the device did not say where the changes end");
    return std::nullopt;
}

OptionalError MirrorConnection::importChanges(const std::function<bool(link::ChangeStream&)>& piece,
                                              link::ImportReply& reply,
                                              CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto writer = _impl->calls->Import(&context, &reply);
    link::ChangeStream message;
    // A device that takes no more says why in its answer.
    while (piece(message) && writer->Write(message)) {
    }
    writer->WritesDone();
    const grpc::Status status = writer->Finish();  // fills the reply
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError MirrorConnection::revision(link::RevisionReply& reply) {
    return unaryCall(*_impl->calls, &link::Mirror::Stub::Revision, {}, reply);
}

OptionalError MirrorConnection::resetChanges(link::ResetChangesReply& reply) {
    return unaryCall(*_impl->calls, &link::Mirror::Stub::ResetChanges, {}, reply);
}

OptionalError MirrorConnection::listAssets(const std::function<void(const link::Asset&)>& row) {
    return streamingCall(*_impl->calls, &link::Mirror::Stub::ListAssets, {},
                         [&](const link::WantedAssets& batch) {
                             for (const link::Asset& asset : batch.assets())
                                 row(asset);
                         });
}

}  // namespace host
