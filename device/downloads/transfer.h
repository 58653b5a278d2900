// One attempt to bring a download's bytes, and what came of it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/operating_system.h"

namespace downloads {

struct Outcome {
    enum class Kind {
        Complete,  // every byte is staged
        Passing,   // may go better another time; what is staged stays good
        Changed,   // what is staged is of another version than the source has now
        Refused,   // trying again would not help
    };
    Kind kind = Kind::Passing;
    std::string reason;                                 // plain words; "" when complete
    std::optional<platform::Nanoseconds> retryAfter{};  // not before; the source's own wish
    bool isGone = false;  // refused, because the source has no such file (any more)
};

// Used by the engine's thread. Released at any time, it stops.
class Transfer {
public:
    virtual ~Transfer() = default;
    // Present once it has ended.
    virtual const std::optional<Outcome>& outcome() const = 0;
    // Works for a moment; true when there is more to do at once, without waiting for a network.
    virtual bool step() = 0;
};

}  // namespace downloads
