// The daemon's answers about backups: making one, taking one in, and what came of it.
//
// Called on threads of the RPC library, several at once. Every call is a boundary: an exception
// becomes that call's failure.
#pragma once

#include <functional>
#include <optional>

#include "device/korvane/activity_lock.h"
#include "device/orlith/backup/restore_finish.h"
#include "device/orlith/call_counter.h"
#include "device/orlith/session_slot.h"
#include "link/backup.grpc.pb.h"
#include "platform/log.h"

namespace orlith {

// All of it outlives the service.
struct BackupServiceParts {
    ORClient& client;
    device::RootedFileSystem& files;
    korvane::Library& library;
    korvane::ActivityLock& activities;
    SessionSlot& slot;
    platform::LogService& log;
    CallCounter& calls;
    std::function<void()> requestStop;  // called on any thread: the daemon is to leave
    std::optional<FinishedRestore> lastRestore;
};

class BackupService final : public link::Backup::Service {
public:
    explicit BackupService(BackupServiceParts parts) : _parts(std::move(parts)) {}

    grpc::Status Create(grpc::ServerContext* context, const link::CreateBackupRequest* request,
                        grpc::ServerWriter<link::BackupPiece>* writer) override;
    grpc::Status Restore(grpc::ServerContext* context,
                         grpc::ServerReader<link::RestorePiece>* reader,
                         link::RestoreReply* reply) override;
    grpc::Status LastRestore(grpc::ServerContext* context, const link::LastRestoreRequest* request,
                             link::LastRestoreReply* reply) override;

private:
    platform::OptionalError create(grpc::ServerWriter<link::BackupPiece>& writer);
    platform::OptionalError restore(grpc::ServerReader<link::RestorePiece>& reader,
                                    link::RestoreReply& reply);
    double now() const;

    const BackupServiceParts _parts;
};

}  // namespace orlith
