// Purpose: the errors of talking to a device, and how they come out of what the device said.
// Thread: any.
// Failure: none.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/errors.h"

namespace grpc {
class Status;
}

namespace orlith::link {
class Failure;
class SessionFailed;
}  // namespace orlith::link

namespace host {

inline constexpr std::string_view LinkErrorDomain = "HostLinkError";
enum LinkErrorCode : std::int64_t {
    LinkErrorUnreachable = 1,  // no daemon, or it went away
    LinkErrorBusy = 2,         // another session runs
    LinkErrorProtocol = 3,     // the device said something that makes no sense here
    LinkErrorCancelled = 4,    // this side was asked to stop
    LinkErrorNotFound = 5,     // the device has no such track
};

// Codes of the daemon's own domain that the host tells apart.
inline constexpr std::string_view DaemonErrorDomain = "OrlithErrorDomain";
inline constexpr std::int64_t DaemonErrorBusy = 1;
// The library's: what an edit names is not there, or there are several.
inline constexpr std::string_view LibraryErrorDomain = "KV3KorvaneErrorDomain";
inline constexpr std::int64_t LibraryErrorNotFound = 4;

platform::Error errorOfStatus(const grpc::Status& status);
// None when the call went well.
platform::OptionalError errorOfCall(const grpc::Status& status);
// Of a call whose answer says itself whether the device did what was asked.
platform::OptionalError errorOfReply(const grpc::Status& status, bool success,
                                     const orlith::link::Failure& failure);
platform::Error errorOfFailure(const orlith::link::Failure& failure);
platform::Error errorOfFailedSession(const orlith::link::SessionFailed& failed);
platform::Error cancelledError();
// Whether the device has run out of space.
bool isNoSpace(const platform::Error& error);

}  // namespace host
