// The boundary of a call over the link: it is counted, an exception in it becomes its failure, and
// an error becomes the status that a caller sees.
//
// Any thread.
#pragma once

#include <grpcpp/support/status.h>

#include <functional>
#include <type_traits>

#include "device/orlith/call_counter.h"
#include "platform/errors.h"
#include "platform/log.h"

namespace orlith {

// A SessionError becomes the status of its error; any other exception is logged.
grpc::Status guardedCall(CallCounter& calls, platform::LogService& log, const char* call,
                         const std::function<grpc::Status()>& body);

template <typename Body>
concept AnswersNothing = std::is_void_v<std::invoke_result_t<Body>>;

// A body that answers nothing has done well when it returns.
template <AnswersNothing Body>
grpc::Status guardedCall(CallCounter& calls, platform::LogService& log, const char* call,
                         const Body& body) {
    return guardedCall(calls, log, call, [&] {
        body();
        return grpc::Status::OK;
    });
}

grpc::Status statusOf(const platform::Error& error);

}  // namespace orlith
