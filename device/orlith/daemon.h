// The daemon's life: it opens the device, loads the plug-in, listens, serves and leaves in order.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/log.h"

namespace orlith {

struct DaemonOptions {
    std::string root;        // the device directory on the real disk
    std::string socketPath;  // empty: the device's own
    std::string bundlePath;  // empty: beside the program
    platform::LogLevel logLevel = platform::LogLevel::Notice;
    std::optional<std::chrono::seconds> idleExit;
    int startupReport = -1;  // see link/start_daemon.h
};

// Exit codes of the daemon.
inline constexpr int ExitOrderly = 0;
inline constexpr int ExitFailure = 1;
inline constexpr int ExitBusy = 11;           // another daemon serves the device
inline constexpr int ExitConfiguration = 78;  // starting again would not help

// Runs until it is asked to end; called once, on the main thread, before any other thread exists.
// The exit code.
int runDaemon(const DaemonOptions& options);

}  // namespace orlith
