// orlithd: the sync daemon of one device directory.
#include <CLI/CLI.hpp>

#include "apps/orlithd_options.h"

namespace {

constexpr int ExitUsage = 2;

}  // namespace

int main(int argc, char** argv) {
    CLI::App app;
    OrlithdArguments arguments;
    declareOrlithd(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : ExitUsage;
    }
    return orlith::runDaemon(arguments.settle());
}
