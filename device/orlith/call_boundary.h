// The boundary of a call over the link: it is counted, an exception in it becomes its failure, and
// an error becomes the status that a caller sees.
//
// Any thread.
#pragma once

#include <grpcpp/support/status.h>

#include <functional>

#include "device/orlith/call_counter.h"
#include "platform/errors.h"
#include "platform/log.h"

namespace orlith {

grpc::Status guardedCall(CallCounter& calls, platform::LogService& log, const char* call,
                         const std::function<grpc::Status()>& body);

grpc::Status statusOf(const platform::Error& error);

}  // namespace orlith
