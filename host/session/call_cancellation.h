// Purpose: ends calls that run, and those that begin later, from another thread (Ctrl-C).
// Thread: any.
// Ownership: outlives the calls.
// Failure: none; the calls end as cancelled.
#pragma once

#include <mutex>

namespace grpc {
class ClientContext;
}

namespace host {

class CallCancellation {
public:
    void cancel();
    bool isCancelled() const;

    // A call that runs as long as this lives; one at a time.
    class Call {
    public:
        Call(CallCancellation& cancellation, grpc::ClientContext& context);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        CallCancellation& _cancellation;
    };

private:
    mutable std::mutex _mutex;  // protects what follows
    grpc::ClientContext* _running = nullptr;
    bool _cancelled = false;
};

}  // namespace host
