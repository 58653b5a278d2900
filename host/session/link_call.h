// Purpose: the calls of the link that have one answer, or answer with rows.
// Thread: any; gRPC serialises nothing, so calls may run side by side.
// Failure: Errors of LinkErrorDomain, or what the device reported.
#pragma once

#include <grpcpp/client_context.h>
#include <grpcpp/support/sync_stream.h>

#include <memory>

#include "host/session/link_error.h"

namespace host {

// An answer that says itself whether the device did what was asked is asked for that too.
template <typename Stub, typename Request, typename Reply>
platform::OptionalError unaryCall(Stub& service,
                                  grpc::Status (Stub::*call)(grpc::ClientContext*, const Request&,
                                                             Reply*),
                                  const Request& request, Reply& reply) {
    grpc::ClientContext context;
    const grpc::Status status = (service.*call)(&context, request, &reply);
    if constexpr (requires {
                      reply.success();
                      reply.failure();
                  })
        return errorOfReply(status, reply.success(), reply.failure());
    else
        return errorOfCall(status);
}

// Gives each of the messages that come in answer to `take`.
template <typename Stub, typename Request, typename Message, typename Take>
platform::OptionalError streamingCall(Stub& service,
                                      std::unique_ptr<grpc::ClientReader<Message>> (Stub::*call)(
                                          grpc::ClientContext*, const Request&),
                                      const Request& request, const Take& take,
                                      grpc::ClientContext& context) {
    const auto reader = (service.*call)(&context, request);
    Message message;
    while (reader->Read(&message))
        take(message);
    return errorOfCall(reader->Finish());
}

template <typename Stub, typename Request, typename Message, typename Take>
platform::OptionalError streamingCall(Stub& service,
                                      std::unique_ptr<grpc::ClientReader<Message>> (Stub::*call)(
                                          grpc::ClientContext*, const Request&),
                                      const Request& request, const Take& take) {
    grpc::ClientContext context;
    return streamingCall(service, call, request, take, context);
}

}  // namespace host
