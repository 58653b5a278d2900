#include "device/orlith/call_boundary.h"

#include <exception>
#include <string>

#include "device/orlith/daemon_log.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"

namespace orlith {

grpc::Status guardedCall(CallCounter& calls, platform::LogService& log, const char* call,
                         const std::function<grpc::Status()>& body) {
    const CallCounter::Call counted(calls);
    std::string reason = "an exception of unknown kind";
    try {
        return body();
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
    }
    logLine(log, platform::LogLevel::Error, call, "failed: " + reason);
    return {grpc::StatusCode::INTERNAL, cleanUTF8("something went wrong on the device: " + reason)};
}

grpc::Status statusOf(const platform::Error& error) {
    const std::string text = cleanUTF8(error.text().empty() ? error.description() : error.text());
    if (error.domain == OrlithErrorDomain && error.code == OrlithErrorBusy)
        return {grpc::StatusCode::ABORTED, "busy"};
    if (error.domain == OrlithErrorDomain && error.code == OrlithErrorProtocol)
        return {grpc::StatusCode::INVALID_ARGUMENT, text};
    if (error.domain == OrlithErrorDomain && error.code == OrlithErrorInternal)
        return {grpc::StatusCode::INTERNAL, text};
    return {grpc::StatusCode::ABORTED, text};
}

}  // namespace orlith
