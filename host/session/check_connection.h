// Purpose: has a device's daemon check what the device holds.
// Thread: any; calls may run side by side.
// Failure: each call returns why it failed; LinkErrorBusy when a session runs.
#pragma once

#include <functional>
#include <memory>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class CheckEnd;
class CheckEvent;
class CheckRequest;
}  // namespace orlith::link

namespace host {

class CallCancellation;

class CheckConnection {
public:
    explicit CheckConnection(std::shared_ptr<grpc::Channel> channel);
    ~CheckConnection();
    CheckConnection(const CheckConnection&) = delete;
    CheckConnection& operator=(const CheckConnection&) = delete;

    // Until the check is over, or cancelled. `onEvent` is told what is found and how far it is.
    platform::OptionalError run(const orlith::link::CheckRequest& request,
                                const std::function<void(const orlith::link::CheckEvent&)>& onEvent,
                                orlith::link::CheckEnd& end, CallCancellation& cancellation);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
