// Purpose: the command line of the daemon.
// Thread: the main thread.
// Failure: none; the parser reports wrong usage.
#pragma once

#include "device/orlith/daemon.h"

namespace CLI {
class App;
}

// Values that the parser fills; settle() puts them into the daemon's options.
struct OrlithdArguments {
    orlith::DaemonOptions options;
    int logLevel = static_cast<int>(options.logLevel);
    int idleExit = 0;  // seconds; 0 when not asked for

    orlith::DaemonOptions settle() const;
};

// `arguments` outlives the parser.
void declareOrlithd(CLI::App& app, OrlithdArguments& arguments);
