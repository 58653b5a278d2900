// Purpose: the error that every service reports: a domain, a code in it and optional information.
// Calling thread: any; an Error is a plain value.
// Callback thread: none.
// Ownership: an Error owns its text and information.
// Failure: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values.h"

namespace platform {

// Domains that more than one service uses. A service's own codes stand in its header.
inline constexpr std::string_view ORErrorDomain = "ORError";
inline constexpr std::string_view FathomErrorDomain = "FathomErrorDomain";
inline constexpr std::string_view URLErrorDomain = "URLErrorDomain";
// Codes are errno values.
inline constexpr std::string_view POSIXErrorDomain = "POSIXErrorDomain";

// The key of the plain-words text in an error's information.
inline constexpr std::string_view ErrorDescriptionKey = "Description";

struct Error {
    std::string domain;
    std::int64_t code = 0;
    Dictionary userInfo;

    Error() = default;
    Error(std::string_view errorDomain, std::int64_t errorCode)
        : domain(errorDomain), code(errorCode) {}
    Error(std::string_view errorDomain, std::int64_t errorCode, std::string_view text)
        : domain(errorDomain), code(errorCode) {
        userInfo.emplace(ErrorDescriptionKey, Value(text));
    }
    // POSIXErrorDomain, the errno value and its text.
    static Error posix(int errorNumber);

    // The plain-words text, or "" when there is none.
    std::string text() const;
    // As a log line prints it: "Error Domain=ORError Code=5 \"text\"".
    std::string description() const;

    bool operator==(const Error&) const = default;
};

// "An error or none."
using OptionalError = std::optional<Error>;

}  // namespace platform
