// Turning errno values into the platform's errors.
#pragma once

#include "platform/errors.h"

namespace device {

// None for 0.
inline platform::OptionalError posixError(int errorNumber) {
    if (errorNumber == 0)
        return std::nullopt;
    return platform::Error::posix(errorNumber);
}

// Stores the outcome in an error slot that may be null.
inline void storePosixError(int errorNumber, platform::OptionalError* error) {
    if (error)
        *error = posixError(errorNumber);
}

}  // namespace device
