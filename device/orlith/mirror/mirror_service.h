// The daemon's answers to its owner about other devices: mirroring, and the change streams behind
// it.
//
// Called on threads of the RPC library, several at once; every call is a boundary.
#pragma once

#include "device/orlith/call_counter.h"
#include "device/orlith/mirror/change_hub.h"
#include "device/orlith/mirror/mirror_services.h"
#include "link/peer.grpc.pb.h"

namespace orlith {

class MirrorService final : public link::Mirror::Service {
public:
    // All of it outlives this. A run ends when the hub is stopped.
    MirrorService(const MirrorServices& services, ChangeHub& hub, CallCounter& calls)
        : _services(services), _hub(hub), _calls(calls) {}

    grpc::Status Run(grpc::ServerContext* context, const link::MirrorRequest* request,
                     grpc::ServerWriter<link::MirrorEvent>* writer) override;
    grpc::Status Export(grpc::ServerContext* context, const link::ExportRequest* request,
                        grpc::ServerWriter<link::ChangeStream>* writer) override;
    grpc::Status Import(grpc::ServerContext* context,
                        grpc::ServerReader<link::ChangeStream>* reader,
                        link::ImportReply* reply) override;
    grpc::Status Revision(grpc::ServerContext* context, const link::RevisionRequest* request,
                          link::RevisionReply* reply) override;
    grpc::Status ResetChanges(grpc::ServerContext* context,
                              const link::ResetChangesRequest* request,
                              link::ResetChangesReply* reply) override;
    grpc::Status ListAssets(grpc::ServerContext* context, const link::ListAssetsRequest* request,
                            grpc::ServerWriter<link::WantedAssets>* writer) override;

private:
    grpc::Status guarded(const char* call, const std::function<grpc::Status()>& body);

    const MirrorServices& _services;
    ChangeHub& _hub;
    CallCounter& _calls;
};

}  // namespace orlith
