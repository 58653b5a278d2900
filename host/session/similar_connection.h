// Purpose: asks a device's daemon which of its tracks are alike.
// Thread: any; calls may run side by side.
// Failure: each call returns why it failed; LinkErrorNotFound when there is no such track or
// nothing is known of it.
#pragma once

#include <memory>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class SimilarReply;
class SimilarRequest;
}  // namespace orlith::link

namespace host {

class SimilarConnection {
public:
    explicit SimilarConnection(std::shared_ptr<grpc::Channel> channel);
    ~SimilarConnection();
    SimilarConnection(const SimilarConnection&) = delete;
    SimilarConnection& operator=(const SimilarConnection&) = delete;

    platform::OptionalError find(const orlith::link::SimilarRequest& request,
                                 orlith::link::SimilarReply& reply);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace host
