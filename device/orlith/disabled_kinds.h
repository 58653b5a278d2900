// The kinds of assets that a bundle's client wants nothing of.
//
// Any thread; takes as long as the client does, which may ask the cloud library.
#pragma once

#include <string>
#include <vector>

#include "platform/sync_daemon.h"

namespace orlith {

// Asset types in alphabetical order; none when the client does not serve the question or disables
// nothing.
std::vector<std::string> disabledKindsOf(ORClient& client);

}  // namespace orlith
