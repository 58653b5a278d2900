// Purpose: completions for shells: commands, their options, and values that are directories, files
// or
//          kinds of media.
// Thread: any.
// Failure: none.
#pragma once

#include <string>

#include "host/commands/pages/command_model.h"

namespace host {

std::string bashCompletion(const CommandModel& program);
std::string zshCompletion(const CommandModel& program);
std::string fishCompletion(const CommandModel& program);

}  // namespace host
