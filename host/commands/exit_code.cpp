#include "host/commands/exit_code.h"

#include <cerrno>

#include "host/scan/scanner.h"
#include "host/session/link_error.h"
#include "host/session/sync_run.h"
#include "host/state/state_store.h"

namespace host {

namespace {

ExitCode codeOfSyncError(std::int64_t code) {
    switch (code) {
        case SyncErrorDeleteGuard:
            return ExitCode::DeleteGuard;
        case SyncErrorNoSpace:
            return ExitCode::NoSpace;
        case SyncErrorNoSuchTrack:
            return ExitCode::NotFound;
        default:
            return ExitCode::Failure;
    }
}

ExitCode codeOfLinkError(std::int64_t code) {
    switch (code) {
        case LinkErrorBusy:
            return ExitCode::Busy;
        case LinkErrorCancelled:
            return ExitCode::Interrupted;
        case LinkErrorNotFound:
            return ExitCode::NotFound;
        default:
            return ExitCode::Failure;
    }
}

ExitCode codeOfScanError(std::int64_t code) {
    switch (code) {
        case ScanErrorFolderNotFound:
            return ExitCode::NotFound;
        case ScanErrorCancelled:
            return ExitCode::Interrupted;
        default:
            return ExitCode::Failure;
    }
}

}  // namespace

ExitCode exitCodeOf(const platform::Error& error) {
    if (error.domain == SyncErrorDomain)
        return codeOfSyncError(error.code);
    if (error.domain == LinkErrorDomain)
        return codeOfLinkError(error.code);
    if (error.domain == ScanErrorDomain)
        return codeOfScanError(error.code);
    if (error.domain == StateErrorDomain && error.code == StateErrorLocked)
        return ExitCode::Busy;
    if (isNoSpace(error))
        return ExitCode::NoSpace;
    if (error.domain == platform::POSIXErrorDomain && error.code == ENOENT)
        return ExitCode::NotFound;
    return ExitCode::Failure;
}

}  // namespace host
