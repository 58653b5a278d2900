// How a session's steps say that the session cannot go on; caught at its two threads' boundaries.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "device/orlith/names.h"
#include "link/orlith.pb.h"
#include "platform/errors.h"

namespace orlith {

// The daemon's own errors and their codes.
inline constexpr std::string_view OrlithErrorDomain = "OrlithErrorDomain";
enum OrlithErrorCode : std::int64_t {
    OrlithErrorBusy = 1,       // another session runs
    OrlithErrorProtocol = 2,   // the host broke the rules of the protocol
    OrlithErrorInternal = 3,   // an exception reached a boundary
    OrlithErrorStopping = 4,   // the daemon is stopping
    OrlithErrorRefused = 5,    // the plug-in said no and gave no reason
    OrlithErrorNotListed = 6,  // no such asset is outstanding
    OrlithErrorImport = 7,     // the session's import has failed
};

// The URL domain's code for a file that is not there.
inline constexpr std::int64_t URLErrorFileDoesNotExist = -1100;

class SessionError : public std::runtime_error {
public:
    explicit SessionError(platform::Error error)
        : std::runtime_error(error.text()), _error(std::move(error)) {}
    const platform::Error& error() const { return _error; }

private:
    platform::Error _error;
};

inline SessionError protocolError(const std::string& text) {
    return SessionError(platform::Error(OrlithErrorDomain, OrlithErrorProtocol,
                                        "the host does not keep to the protocol: " + text));
}

inline platform::Error internalError(const std::string& text) {
    return platform::Error(OrlithErrorDomain, OrlithErrorInternal,
                           "something went wrong on the device: " + text);
}

// Throws when there is an error.
inline void throwIf(const platform::OptionalError& error) {
    if (error)
        throw SessionError(*error);
}

inline void fillFailure(const platform::Error& error, link::Failure& failure) {
    failure.set_domain(error.domain);
    failure.set_code(error.code);
    failure.set_text(cleanUTF8(error.text().empty() ? error.description() : error.text()));
}

// For replies that have `success` and `failure`.
template <typename Reply>
void fillOutcome(const platform::OptionalError& error, Reply& reply) {
    reply.set_success(!error);
    if (error)
        fillFailure(*error, *reply.mutable_failure());
}

}  // namespace orlith
