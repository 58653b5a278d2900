// Purpose: the exit codes of `orlith`, and which error leads to which.
// Thread: any.
// Failure: none.
#pragma once

#include "platform/errors.h"

namespace host {

// Part of the command line's interface: numbers never change.
enum class ExitCode : int {
    Done = 0,
    Failure = 1,
    Usage = 2,
    PartlyDone = 3,  // all was tried, some items failed
    NotFound = 10,
    Busy = 11,
    NoSpace = 13,
    DeleteGuard = 14,
    Interrupted = 130,
};

ExitCode exitCodeOf(const platform::Error& error);

// As `--help` shows them.
inline constexpr const char* ExitCodeHelp =
    "Exit codes:\n"
    "  0    all done\n"
    "  1    something else went wrong\n"
    "  2    the command was not understood\n"
    "  3    done, but some items failed; they are listed\n"
    "  10   folder, file, device or track not found\n"
    "  11   a device or the folder is busy with another run\n"
    "  13   too little space\n"
    "  14   stopped by the delete guard; nothing was changed\n"
    "  130  interrupted\n";

}  // namespace host
