// Purpose: what an owner asks a device about other devices: mirroring, change streams, revisions.
// Thread: any; calls may run side by side.
// Failure: Errors of LinkErrorDomain, or what the device reported.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class Asset;
class ChangeStream;
class ExportRequest;
class ImportReply;
class MirrorEvent;
class MirrorRequest;
class ResetChangesReply;
class RevisionReply;
}  // namespace orlith::link

namespace host {

class CallCancellation;

class MirrorConnection {
public:
    explicit MirrorConnection(std::shared_ptr<grpc::Channel> channel);
    ~MirrorConnection();
    MirrorConnection(const MirrorConnection&) = delete;
    MirrorConnection& operator=(const MirrorConnection&) = delete;

    // Until the run is over; every event but the failure that ends it goes to `event`.
    platform::OptionalError run(const orlith::link::MirrorRequest& request,
                                const std::function<void(const orlith::link::MirrorEvent&)>& event,
                                CallCancellation& cancellation);
    // An error of `piece` ends the call and is returned. The end that the device gave, failed or
    // not, is a piece too; a stream without one is an error.
    platform::OptionalError exportChanges(
        const orlith::link::ExportRequest& request,
        const std::function<platform::OptionalError(const orlith::link::ChangeStream&)>& piece,
        CallCancellation& cancellation);
    // Asks `piece` for the next message until it returns false.
    platform::OptionalError importChanges(
        const std::function<bool(orlith::link::ChangeStream&)>& piece,
        orlith::link::ImportReply& reply, CallCancellation& cancellation);
    platform::OptionalError revision(orlith::link::RevisionReply& reply);
    platform::OptionalError resetChanges(orlith::link::ResetChangesReply& reply);
    platform::OptionalError listAssets(const std::function<void(const orlith::link::Asset&)>& row);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
