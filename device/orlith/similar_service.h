// Tells callers which tracks of the library are like one of them.
//
// Any thread.
#pragma once

#include "device/orlith/call_counter.h"
#include "link/similar.grpc.pb.h"
#include "platform/log.h"

namespace korvane {
class Library;
}

namespace orlith {

class SimilarService final : public link::Similar::Service {
public:
    // All of it outlives the service.
    SimilarService(korvane::Library& library, platform::LogService& log, CallCounter& calls)
        : _library(library), _log(log), _calls(calls) {}

    grpc::Status Find(grpc::ServerContext* context, const link::SimilarRequest* request,
                      link::SimilarReply* reply) override;

private:
    korvane::Library& _library;
    platform::LogService& _log;
    CallCounter& _calls;
};

}  // namespace orlith
