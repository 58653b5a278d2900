#include "host/session/link_error.h"

#include <grpcpp/support/status.h>

#include <cerrno>

#include "link/orlith.pb.h"

namespace host {

platform::Error errorOfStatus(const grpc::Status& status) {
    switch (status.error_code()) {
        case grpc::StatusCode::ABORTED:
            return platform::Error(LinkErrorDomain, LinkErrorBusy, status.error_message());
        case grpc::StatusCode::NOT_FOUND:
            return platform::Error(LinkErrorDomain, LinkErrorNotFound, status.error_message());
        case grpc::StatusCode::CANCELLED:
            return cancelledError();
        case grpc::StatusCode::UNAVAILABLE:
            return platform::Error(LinkErrorDomain, LinkErrorUnreachable,
                                   "the device's daemon went away");
        case grpc::StatusCode::UNIMPLEMENTED:
            return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                                   "the device's daemon cannot do this yet: it is older than this "
                                   "program");
        default:
            return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                                   status.error_message().empty()
                                       ? "the device answered with an error and gave no reason"
                                       : status.error_message());
    }
}

platform::OptionalError errorOfCall(const grpc::Status& status) {
    if (status.ok())
        return std::nullopt;
    return errorOfStatus(status);
}

platform::OptionalError errorOfReply(const grpc::Status& status, bool success,
                                     const orlith::link::Failure& failure) {
    if (auto error = errorOfCall(status))
        return error;
    if (success)
        return std::nullopt;
    return errorOfFailure(failure);
}

platform::Error errorOfFailure(const orlith::link::Failure& failure) {
    const std::string text = failure.text().empty() ? "the device gave no reason" : failure.text();
    if (failure.domain() == DaemonErrorDomain && failure.code() == DaemonErrorBusy)
        return platform::Error(LinkErrorDomain, LinkErrorBusy, text);
    if (failure.domain() == LibraryErrorDomain && failure.code() == LibraryErrorNotFound)
        return platform::Error(LinkErrorDomain, LinkErrorNotFound, text);
    return platform::Error(failure.domain(), failure.code(), text);
}

platform::Error errorOfFailedSession(const orlith::link::SessionFailed& failed) {
    if (!failed.owner().empty() &&
        failed.failure().text().find(failed.owner()) == std::string::npos)
        return platform::Error(LinkErrorDomain, LinkErrorBusy,
                               failed.failure().text() + " (" + failed.owner() + ")");
    return errorOfFailure(failed.failure());
}

platform::Error cancelledError() {
    return platform::Error(LinkErrorDomain, LinkErrorCancelled, "interrupted");
}

bool isNoSpace(const platform::Error& error) {
    return error.domain == platform::POSIXErrorDomain && error.code == ENOSPC;
}

}  // namespace host
