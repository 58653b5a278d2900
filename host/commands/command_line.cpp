#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char Examples[] = R"(
Examples:
  orlith sync ~/Music --device ~/player --dry-run    what would be done, by name and size
  orlith sync ~/Music --device ~/player              nothing is deleted unless --delete is given
  orlith list --device ~/player --playlists
  orlith rate --device ~/player "A title" 4          as the device's owner would
  orlith mirror --from ~/player --to ~/spare         bring another device up to date from this one

`orlith COMMAND --help` explains a command, with examples. A device is a directory; it is made when
it is missing. What the host remembers of it lies in $XDG_STATE_HOME/orlith (~/.local/state/orlith).

)";

}  // namespace

int runCommandLine(int argumentCount, const char* const* arguments) {
    CLI::App program("Syncs folders of media to devices, and devices with each other", "orlith");
    program.require_subcommand(1);
    program.footer(std::string(Examples) + ExitCodeHelp);
    program.set_version_flag("--version", "orlith 0.1.0");
    CommandSet commands(program);
    addSyncCommands(commands);
    addDeviceCommands(commands);
    addEditCommands(commands);
    addMirrorCommands(commands);
    addChangeCommands(commands);
    addFetchCommands(commands);
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        // Help goes to the standard output and is no failure; all else is wrong usage.
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return program.exit(error);
        program.exit(error);
        return static_cast<int>(ExitCode::Usage);
    }
    return static_cast<int>(commands.run());
}

}  // namespace host
