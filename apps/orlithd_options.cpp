#include "apps/orlithd_options.h"

#include <CLI/CLI.hpp>

namespace {

constexpr char Description[] =
    "Serves one device: a directory that holds a player's library and its media.\n"
    "The command \"orlith\" talks to it, and starts it when it does not run, so it is\n"
    "seldom started by hand. One daemon serves one directory.";

constexpr char Footer[] =
    "Exit codes: 0 ended in order, 1 failure, 2 wrong use, 11 the device is served\n"
    "already, 78 a setting that starting again would not put right.\n\n"
    "Signals: SIGTERM, SIGINT and SIGHUP end it in order; a second one ends it at once,\n"
    "which loses nothing that was acknowledged.\n\n"
    "Example: orlithd --root ~/player";

}  // namespace

orlith::DaemonOptions OrlithdArguments::settle() const {
    orlith::DaemonOptions settled = options;
    settled.logLevel = static_cast<platform::LogLevel>(logLevel);
    if (idleExit != 0)
        settled.idleExit = std::chrono::seconds(idleExit);
    return settled;
}

void declareOrlithd(CLI::App& app, OrlithdArguments& arguments) {
    app.name("orlithd");
    app.description(Description);
    app.footer(Footer);
    app.add_option("--root", arguments.options.root,
                   "The device directory; made when it is missing")
        ->required()
        ->type_name("DIR");
    app.add_option("--listen", arguments.options.socketPath,
                   "Listen on this Unix socket instead of DIR/var/run/orlith.sock")
        ->type_name("SOCKET");
    app.add_option("--plug-in", arguments.options.bundlePath,
                   "The plug-in to load; normally found beside the program")
        ->type_name("FILE");
    app.add_option("--log-level", arguments.logLevel,
                   "What is logged: 3 errors, 4 warnings, 5 notices, 6 details, 7 everything")
        ->check(CLI::Range(0, 7))
        ->capture_default_str();
    app.add_option("--idle-exit", arguments.idleExit, "Leave when nobody has called for so long")
        ->check(CLI::Range(1, 1000000))
        ->type_name("SECONDS");
    app.add_option("--startup-report", arguments.options.startupReport)->group("");
}
