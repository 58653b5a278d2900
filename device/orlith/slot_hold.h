// The device's one place for a session, for as long as a call works on the library.
#pragma once

#include <grpcpp/server_context.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "device/orlith/session_error.h"
#include "device/orlith/session_slot.h"

namespace orlith {

class SlotHold {
public:
    // Throws SessionError when somebody else has it. A daemon that wants the place back cancels the
    // call.
    SlotHold(SessionSlot& slot, const char* purpose, grpc::ServerContext& context) : _slot(slot) {
        std::string holder;
        const SessionOwner owner{purpose, static_cast<std::uint32_t>(::getpid()),
                                 std::chrono::steady_clock::now()};
        if (!slot.acquire(
                owner, [&context](const std::string&) { context.TryCancel(); }, holder))
            throw SessionError(platform::Error(OrlithErrorDomain, OrlithErrorBusy,
                                               "the device is busy with " + holder));
    }
    ~SlotHold() { _slot.release(); }
    SlotHold(const SlotHold&) = delete;
    SlotHold& operator=(const SlotHold&) = delete;

private:
    SessionSlot& _slot;
};

}  // namespace orlith
