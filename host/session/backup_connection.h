// Purpose: what an owner asks a device about backups: making one, and bringing the device back.
// Thread: one at a time.
// Failure: Errors of LinkErrorDomain, or what the device reported.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"

namespace grpc {
class Channel;
}

namespace orlith::link {
class BackupPiece;
class LastRestoreReply;
class RestoreOpen;
class RestoreReply;
}  // namespace orlith::link

namespace host {

class CallCancellation;

class BackupConnection {
public:
    explicit BackupConnection(std::shared_ptr<grpc::Channel> channel);
    ~BackupConnection();
    BackupConnection(const BackupConnection&) = delete;
    BackupConnection& operator=(const BackupConnection&) = delete;

    // An error of `piece` ends the call and is returned; so is the device's own.
    platform::OptionalError create(
        const std::function<platform::OptionalError(const orlith::link::BackupPiece&)>& piece,
        CallCancellation& cancellation);
    // Asks `next` for more bytes until it gives none. After success the daemon leaves.
    platform::OptionalError restore(const orlith::link::RestoreOpen& open,
                                    const std::function<void(std::string& bytes)>& next,
                                    orlith::link::RestoreReply& reply,
                                    CallCancellation& cancellation);
    platform::OptionalError lastRestore(orlith::link::LastRestoreReply& reply);

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

// Waits until the daemon that left after a restore has gone, and until the next one, which is
// started, has finished the restore; that may take minutes. Null on failure.
std::unique_ptr<BackupConnection> openAfterRestore(const std::string& deviceDirectory,
                                                   const orlith::link::RestoreReply& reply,
                                                   platform::OptionalError* error);

}  // namespace host
