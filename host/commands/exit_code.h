// Purpose: the exit codes of `orlith`, and which error leads to which.
// Thread: any.
// Failure: none.
#pragma once

#include <string>
#include <vector>

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

// As `--help` shows them: of a command that can give these, beside 0, 1 and 2, which all can.
std::string exitCodeHelp(const std::vector<ExitCode>& further);
// Of the whole program.
std::string exitCodeHelp();

}  // namespace host
