// Checks whether library, files, pictures, staging area and revisions agree, and mends what does
// not. A check has the session's place: nothing else changes the device meanwhile.
//
// Any thread.
#pragma once

#include <functional>

#include "device/orlith/call_counter.h"
#include "device/orlith/session_slot.h"
#include "device/orlith/staging_area.h"
#include "link/check.grpc.pb.h"
#include "platform/log.h"

namespace korvane {
class ActivityLock;
class Library;
struct CheckRun;
}  // namespace korvane

namespace orlith {

class LibraryAccess;
class Notices;

// All of it outlives the service.
struct CheckParts {
    korvane::Library& library;
    korvane::ActivityLock& activities;
    LibraryAccess& access;
    StagingArea& staging;
    Notices& notices;
    SessionSlot& slot;
    platform::LogService& log;
    CallCounter& calls;
    // Asks the daemon to end in order; it is started anew by whoever calls next.
    std::function<void()> requestStop;
};

class CheckService final : public link::Check::Service {
public:
    explicit CheckService(const CheckParts& parts) : _parts(parts) {}

    grpc::Status Run(grpc::ServerContext* context, const link::CheckRequest* request,
                     grpc::ServerWriter<link::CheckEvent>* writer) override;

private:
    void checkStaging(const korvane::CheckRun& run);

    const CheckParts _parts;
};

}  // namespace orlith
