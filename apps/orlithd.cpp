// orlithd: the sync daemon of one device directory.
#include <CLI/CLI.hpp>

#include "device/orlith/daemon.h"

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

constexpr int ExitUsage = 2;

}  // namespace

int main(int argc, char** argv) {
    orlith::DaemonOptions options;
    int logLevel = static_cast<int>(options.logLevel);
    int idleExit = 0;

    CLI::App app(Description, "orlithd");
    app.footer(Footer);
    app.add_option("--root", options.root, "The device directory; made when it is missing")
        ->required()
        ->type_name("DIR");
    app.add_option("--listen", options.socketPath,
                   "Listen on this Unix socket instead of DIR/var/run/orlith.sock")
        ->type_name("SOCKET");
    app.add_option("--plug-in", options.bundlePath,
                   "The plug-in to load; normally found beside the program")
        ->type_name("FILE");
    app.add_option("--log-level", logLevel,
                   "What is logged: 3 errors, 4 warnings, 5 notices, 6 details, 7 everything")
        ->check(CLI::Range(0, 7))
        ->capture_default_str();
    const CLI::Option* idle =
        app.add_option("--idle-exit", idleExit, "Leave when nobody has called for so long")
            ->check(CLI::Range(1, 1000000))
            ->type_name("SECONDS");
    app.add_option("--startup-report", options.startupReport)->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : ExitUsage;
    }
    options.logLevel = static_cast<platform::LogLevel>(logLevel);
    if (idle->count() != 0)
        options.idleExit = std::chrono::seconds(idleExit);
    return orlith::runDaemon(options);
}
