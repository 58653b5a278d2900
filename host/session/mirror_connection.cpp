#include "host/session/mirror_connection.h"

#include <grpcpp/channel.h>

#include "host/session/call_cancellation.h"
#include "host/session/device_channel.h"
#include "host/session/link_error.h"
#include "link/peer.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

struct MirrorConnection::Impl {
    std::unique_ptr<link::Mirror::Stub> stub;
};

std::unique_ptr<MirrorConnection> MirrorConnection::open(const std::string& deviceDirectory,
                                                         OptionalError* error) {
    auto channel = openDeviceChannel(deviceDirectory, error);
    return channel ? std::make_unique<MirrorConnection>(std::move(channel)) : nullptr;
}

MirrorConnection::MirrorConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>()) {
    _impl->stub = link::Mirror::NewStub(channel);
}

MirrorConnection::~MirrorConnection() = default;

OptionalError MirrorConnection::run(const link::MirrorRequest& request,
                                    const std::function<void(const link::MirrorEvent&)>& event,
                                    CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto reader = _impl->stub->Run(&context, request);
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
    const auto reader = _impl->stub->Export(&context, request);
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
    const auto writer = _impl->stub->Import(&context, &reply);
    link::ChangeStream message;
    // A device that takes no more says why in its answer.
    while (piece(message) && writer->Write(message)) {
    }
    writer->WritesDone();
    const grpc::Status status = writer->Finish();  // fills the reply
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError MirrorConnection::revision(link::RevisionReply& reply) {
    grpc::ClientContext context;
    return errorOfCall(_impl->stub->Revision(&context, {}, &reply));
}

OptionalError MirrorConnection::resetChanges(link::ResetChangesReply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = _impl->stub->ResetChanges(&context, {}, &reply);
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError MirrorConnection::listAssets(const std::function<void(const link::Asset&)>& row) {
    grpc::ClientContext context;
    const auto reader = _impl->stub->ListAssets(&context, {});
    link::WantedAssets batch;
    while (reader->Read(&batch))
        for (const link::Asset& asset : batch.assets())
            row(asset);
    return errorOfCall(reader->Finish());
}

}  // namespace host
