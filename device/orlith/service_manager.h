// What a service manager tells the daemon and wants to hear from it. Without one, nothing happens.
#pragma once

#include <string>

#include "common/unique_fd.h"

namespace orlith {

// A listening Unix socket that the manager opened for this process, made non-blocking; empty when
// there is none.
common::UniqueFd socketFromServiceManager();

void tellReady(const std::string& status);
void tellStatus(const std::string& status);
void tellStopping();

}  // namespace orlith
