// Purpose: manual pages in the language of man(7).
// Thread: any.
// Failure: none.
#pragma once

#include <string>

#include "host/commands/pages/command_model.h"

namespace host {

struct ManPage {
    std::string name;  // of the file: "orlith-sync.1"
    std::string text;
};

// Of the program itself: its commands in a list.
ManPage manPageOfProgram(const CommandModel& program, int section);
// Of one command, with its actions.
ManPage manPageOfCommand(const CommandModel& command);

}  // namespace host
