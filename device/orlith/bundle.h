// A plug-in, opened as a bundle.
//
// Thread: that of the daemon's start. A bundle is never unloaded, for its callbacks may still be
// under way in the services when its clients are released.
#pragma once

#include <string>

#include "platform/errors.h"
#include "platform/platform.h"

namespace orlith {

// What is wrong with a plug-in's clients, as it would be said of the plug-in: one of them is
// missing, or they serve different data.
platform::OptionalError checkClients(const ORBundleClients& clients);

// Loads the shared object and has it make its clients on the given platform, which stays installed
// until the process ends. A bundle that is missing, exports no entry point, was built for another
// version of the interfaces, or cannot start is an error in plain words, and `clients` stays empty.
platform::OptionalError openBundle(const std::string& path, platform::Platform& platform,
                                   ORBundleClients& clients);

// "KVSyncClient.so" as it is found beside the running program: in "../lib", then in its own folder,
// then in "../lib/orlith".
std::string defaultBundlePath();

}  // namespace orlith
