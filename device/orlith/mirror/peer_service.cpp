#include "device/orlith/mirror/peer_service.h"

#include "device/orlith/call_boundary.h"
#include "device/orlith/grpc_message_stream.h"
#include "device/orlith/mirror/serving_session.h"

namespace orlith {
namespace {

// Each has a thread of the RPC library to itself.
constexpr int MostWatchers = 16;
// How often a watcher that has gone is noticed.
constexpr std::chrono::milliseconds LookInterval{200};

}  // namespace

grpc::Status PeerService::Exchange(
    grpc::ServerContext* context,
    grpc::ServerReaderWriter<link::FromFirst, link::FromCompanion>* stream) {
    return guardedCall(_calls, _services.device.log, "Exchange", [&] {
        GrpcMessageStream messages(*context, *stream);
        const platform::OptionalError failure = ServingSession(_services, messages).run();
        return failure ? statusOf(*failure) : grpc::Status::OK;
    });
}

grpc::Status PeerService::Watch(grpc::ServerContext* context, const link::WatchRequest* request,
                                grpc::ServerWriter<link::LibraryChanged>* writer) {
    return guardedCall(_calls, _services.device.log, "Watch", [&] {
        struct Place {
            explicit Place(std::atomic<int>& taken) : count(taken) { ++count; }
            ~Place() { --count; }
            std::atomic<int>& count;
        } const place(_watchers);
        if (_watchers > MostWatchers)
            return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED,
                                "too many devices follow this one");
        ChangeHub::Position position = _hub.now();
        link::LibraryChanged told = changeFor(request->library_uid());
        bool goesOn = writer->Write(told);
        while (goesOn && !context->IsCancelled() && !_hub.isStopped()) {
            const auto priority = _hub.wait(position, LookInterval);
            link::LibraryChanged change = changeFor(request->library_uid());
            // A revision that nobody told of counts too.
            if (!priority && change.revision() == told.revision())
                continue;
            told = change;
            if (priority)
                change.set_priority(*priority);
            goesOn = writer->Write(change);
        }
        return grpc::Status::OK;
    });
}

link::LibraryChanged PeerService::changeFor(const std::string& watcherUID) {
    link::LibraryChanged change;
    change.set_library_uid(_services.changes.versionToken());
    change.set_revision(_services.changes.revision());
    change.set_acknowledged_revision(_services.peers.peer(watcherUID).acknowledged);
    return change;
}

}  // namespace orlith
