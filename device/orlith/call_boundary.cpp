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
    } catch (const SessionError& error) {
        return statusOf(error.error());
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
    }
    logLine(log, platform::LogLevel::Error, call, "failed: " + reason);
    return {grpc::StatusCode::INTERNAL, cleanUTF8("something went wrong on the device: " + reason)};
}

grpc::Status statusOf(const platform::Error& error) {
    const std::string text = cleanUTF8(error.text().empty() ? error.description() : error.text());
    const auto is = [&error](OrlithErrorCode code) {
        return error.domain == OrlithErrorDomain && error.code == code;
    };
    if (is(OrlithErrorBusy))
        return {grpc::StatusCode::ABORTED, text};
    if (is(OrlithErrorProtocol))
        return {grpc::StatusCode::INVALID_ARGUMENT, text};
    return {grpc::StatusCode::INTERNAL, text};
}

}  // namespace orlith
