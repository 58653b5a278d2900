// Purpose: asks a device's daemon which of its tracks are alike.
// Thread: one at a time.
// Failure: each call returns why it failed; LinkErrorNotFound when there is no such track or
// nothing is known of it.
#pragma once

#include <memory>
#include <string>

#include "platform/errors.h"

namespace orlith::link {
class SimilarReply;
class SimilarRequest;
}  // namespace orlith::link

namespace host {

class SimilarConnection {
public:
    // Connects to the daemon of a device directory and starts one when none runs. Null on failure.
    static std::unique_ptr<SimilarConnection> open(const std::string& deviceDirectory,
                                                   platform::OptionalError* error);
    ~SimilarConnection();
    SimilarConnection(const SimilarConnection&) = delete;
    SimilarConnection& operator=(const SimilarConnection&) = delete;

    platform::OptionalError find(const orlith::link::SimilarRequest& request,
                                 orlith::link::SimilarReply& reply);

private:
    struct Impl;
    explicit SimilarConnection(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> _impl;
};

}  // namespace host
