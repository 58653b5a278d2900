#include "host/commands/exit_code.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "host/scan/scanner.h"
#include "host/session/link_error.h"
#include "host/session/sync_run.h"
#include "host/state/state_store.h"

namespace host {

namespace {

struct Explanation {
    ExitCode code;
    const char* text;
};

constexpr Explanation Explanations[] = {
    {ExitCode::Done, "all done"},
    {ExitCode::Failure, "something else went wrong"},
    {ExitCode::Usage, "the command was not understood"},
    {ExitCode::PartlyDone, "done, but some items failed; they are listed"},
    {ExitCode::NotFound, "a folder, file, device, track or playlist was not found"},
    {ExitCode::Busy, "a device or the folder is busy with another run"},
    {ExitCode::NoSpace, "too little space"},
    {ExitCode::DeleteGuard, "stopped by the delete guard; nothing was changed"},
    {ExitCode::Interrupted, "interrupted"},
};

std::string helpOf(const std::function<bool(ExitCode)>& isWanted) {
    std::string text = "Exit codes:\n";
    for (const Explanation& explanation : Explanations)
        if (isWanted(explanation.code))
            text +=
                fmt::format("  {:<4} {}\n", static_cast<int>(explanation.code), explanation.text);
    return text;
}

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

std::string exitCodeHelp(const std::vector<ExitCode>& further) {
    return helpOf([&](ExitCode code) {
        return code <= ExitCode::Usage || std::ranges::find(further, code) != further.end();
    });
}

std::string exitCodeHelp() {
    return helpOf([](ExitCode) { return true; });
}

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
