#include "host/session/call_cancellation.h"

#include <grpcpp/client_context.h>

namespace host {

void CallCancellation::cancel() {
    const std::scoped_lock lock(_mutex);
    _cancelled = true;
    if (_running != nullptr)
        _running->TryCancel();
}

bool CallCancellation::isCancelled() const {
    const std::scoped_lock lock(_mutex);
    return _cancelled;
}

CallCancellation::Call::Call(CallCancellation& cancellation, grpc::ClientContext& context)
    : _cancellation(cancellation) {
    const std::scoped_lock lock(_cancellation._mutex);
    _cancellation._running = &context;
    if (_cancellation._cancelled)
        context.TryCancel();
}

CallCancellation::Call::~Call() {
    const std::scoped_lock lock(_cancellation._mutex);
    _cancellation._running = nullptr;
}

}  // namespace host
