// The device's one place for a session, for as long as a call works on the library.
#pragma once

#include <grpcpp/server_context.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "device/orlith/session_error.h"
#include "device/orlith/session_slot.h"

namespace orlith {

class SlotHold {
public:
    // Throws SessionError when somebody else has it. `stop` is called when the daemon wants it
    // back.
    SlotHold(SessionSlot& slot, const SessionOwner& owner,
             std::function<void(const std::string&)> stop)
        : _slot(slot) {
        std::string holder;
        if (!slot.acquire(owner, std::move(stop), holder))
            throw SessionError(platform::Error(OrlithErrorDomain, OrlithErrorBusy,
                                               "the device is busy with " + holder));
    }
    // Of this daemon itself; one that wants the place back cancels the call.
    SlotHold(SessionSlot& slot, const char* purpose, grpc::ServerContext& context)
        : SlotHold(
              slot,
              {purpose, static_cast<std::uint32_t>(::getpid()), std::chrono::steady_clock::now()},
              [&context](const std::string&) { context.TryCancel(); }) {}
    ~SlotHold() { _slot.release(); }
    SlotHold(const SlotHold&) = delete;
    SlotHold& operator=(const SlotHold&) = delete;

private:
    SessionSlot& _slot;
};

}  // namespace orlith
