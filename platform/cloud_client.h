// Purpose: the cloud client: whether the device's owner is signed in to the cloud library.
// Calling thread: any.
// Callback thread: a job of the queue that the caller names; it may block as long as that queue
//   allows.
// Ownership: a client is a shared reference; it may be released before its answer comes.
// Failure: none; what cannot be found out is answered with false. The handler is called exactly
//   once.
#pragma once

#include <functional>
#include <memory>

#include "platform/operating_system.h"

class KLCloudClient {
public:
    static std::shared_ptr<KLCloudClient> make();

    virtual ~KLCloudClient() = default;
    // isAuthenticatedWithQueue:completionHandler:
    virtual void isAuthenticatedWithQueue(std::shared_ptr<platform::WorkQueue> queue,
                                          std::function<void(bool)> completionHandler) = 0;
};

// What the cloud client's owner implements of this header; installed in the Platform.
class CloudServices {
public:
    virtual ~CloudServices() = default;
    virtual std::shared_ptr<KLCloudClient> makeClient() = 0;
};
