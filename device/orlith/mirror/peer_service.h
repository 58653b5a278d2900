// The daemon's answers to other devices' daemons.
//
// Called on threads of the RPC library, several at once; every call is a boundary.
#pragma once

#include <atomic>

#include "device/orlith/call_counter.h"
#include "device/orlith/mirror/change_hub.h"
#include "device/orlith/mirror/mirror_services.h"
#include "link/peer.grpc.pb.h"

namespace orlith {

class PeerService final : public link::Peer::Service {
public:
    // All of it outlives this.
    PeerService(const MirrorServices& services, ChangeHub& hub, CallCounter& calls)
        : _services(services), _hub(hub), _calls(calls) {}

    grpc::Status Exchange(
        grpc::ServerContext* context,
        grpc::ServerReaderWriter<link::FromFirst, link::FromCompanion>* stream) override;
    grpc::Status Watch(grpc::ServerContext* context, const link::WatchRequest* request,
                       grpc::ServerWriter<link::LibraryChanged>* writer) override;

private:
    link::LibraryChanged changeFor(const std::string& watcherUID);

    const MirrorServices& _services;
    ChangeHub& _hub;
    CallCounter& _calls;
    std::atomic<int> _watchers{0};
};

}  // namespace orlith
