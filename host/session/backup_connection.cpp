#include "host/session/backup_connection.h"

#include <grpcpp/channel.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "common/unique_fd.h"
#include "host/session/call_cancellation.h"
#include "host/session/device_channel.h"
#include "host/session/link_call.h"
#include "link/backup.grpc.pb.h"

namespace host {

namespace link = ::orlith::link;

using platform::OptionalError;

namespace {

// How long a daemon may take to leave, and the next one to finish a restore.
constexpr std::chrono::milliseconds LeavingDeadline{60'000};
constexpr std::chrono::minutes FinishingDeadline{30};

void waitForEnd(std::uint32_t process) {
    // One that is gone already, or lives elsewhere, has no descriptor.
    const common::UniqueFd handle(
        static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0u)));
    pollfd waiting{handle.get(), POLLIN, 0};
    while (handle && ::poll(&waiting, 1, static_cast<int>(LeavingDeadline.count())) < 0 &&
           errno == EINTR) {
    }
}

// Whether a daemon has the device and is not ready yet.
bool isStarting(const platform::Error& error) {
    return error.domain == platform::POSIXErrorDomain &&
           (error.code == ETIMEDOUT || error.code == EBUSY);
}

}  // namespace

struct BackupConnection::Impl {
    std::unique_ptr<link::Backup::Stub> calls;
};

BackupConnection::BackupConnection(std::shared_ptr<grpc::Channel> channel)
    : _impl(std::make_unique<Impl>(link::Backup::NewStub(std::move(channel)))) {}

BackupConnection::~BackupConnection() = default;

OptionalError BackupConnection::create(
    const std::function<OptionalError(const link::BackupPiece&)>& piece,
    CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto reader = _impl->calls->Create(&context, {});
    OptionalError failure;
    bool ended = false;
    link::BackupPiece message;
    while (!failure && reader->Read(&message)) {
        ended = message.has_end();
        failure = ended && message.end().has_failure() ? errorOfFailure(message.end().failure())
                                                       : piece(message);
    }
    if (failure)
        context.TryCancel();
    const grpc::Status status = reader->Finish();
    if (failure)
        return failure;
    if (OptionalError error = errorOfCall(status))
        return error;
    if (!ended)
        return platform::Error(LinkErrorDomain, LinkErrorProtocol,
                               "the device did not say where the backup ends");
    return std::nullopt;
}

OptionalError BackupConnection::restore(const link::RestoreOpen& open,
                                        const std::function<void(std::string& bytes)>& next,
                                        link::RestoreReply& reply, CallCancellation& cancellation) {
    grpc::ClientContext context;
    const CallCancellation::Call call(cancellation, context);
    const auto writer = _impl->calls->Restore(&context, &reply);
    link::RestorePiece message;
    *message.mutable_open() = open;
    // A device that takes no more says why in its answer.
    while (writer->Write(message)) {
        next(*message.mutable_data());
        if (message.data().empty())
            break;
    }
    writer->WritesDone();
    const grpc::Status status = writer->Finish();  // fills the reply
    return errorOfReply(status, reply.success(), reply.failure());
}

OptionalError BackupConnection::lastRestore(link::LastRestoreReply& reply) {
    return unaryCall(*_impl->calls, &link::Backup::Stub::LastRestore, {}, reply);
}

std::unique_ptr<BackupConnection> openAfterRestore(const std::string& deviceDirectory,
                                                   const link::RestoreReply& reply,
                                                   OptionalError* error) {
    waitForEnd(reply.process_id());
    const auto deadline = std::chrono::steady_clock::now() + FinishingDeadline;
    for (;;) {
        OptionalError reason;
        if (auto connection = connectTo<BackupConnection>(deviceDirectory, &reason))
            return connection;
        if (!isStarting(*reason) || std::chrono::steady_clock::now() >= deadline) {
            if (error)
                *error = reason;
            return nullptr;
        }
    }
}

}  // namespace host
