// Purpose: has a device's daemon check what the device holds.
// Thread: one at a time.
// Failure: each call returns why it failed; LinkErrorBusy when a session runs.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"

namespace orlith::link {
class CheckEnd;
class CheckRequest;
class Finding;
}  // namespace orlith::link

namespace host {

class CheckConnection {
public:
    // Connects to the daemon of a device directory and starts one when none runs. Null on failure.
    static std::unique_ptr<CheckConnection> open(const std::string& deviceDirectory,
                                                 platform::OptionalError* error);
    ~CheckConnection();
    CheckConnection(const CheckConnection&) = delete;
    CheckConnection& operator=(const CheckConnection&) = delete;

    // Until the check is over.
    platform::OptionalError run(const orlith::link::CheckRequest& request,
                                const std::function<void(const orlith::link::Finding&)>& finding,
                                orlith::link::CheckEnd& end);

private:
    struct Impl;
    explicit CheckConnection(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> _impl;
};

}  // namespace host
