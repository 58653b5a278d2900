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

`orlith COMMAND --help` explains a command, with examples. A device is a directory; sync,
mirror, import and restore make it when it is missing. What the host remembers of it lies in
$XDG_STATE_HOME/orlith (~/.local/state/orlith).

)";

// What was not understood, and where to read on.
std::string failureText(const CLI::App* program, const CLI::Error& error) {
    const CLI::App* command = program;
    std::string words = program->get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        words += " " + command->get_name();
    }
    std::string text = error.what();
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) &&
        command->get_require_subcommand_min() > 0 && command->get_subcommands().empty()) {
        const std::vector<std::string> unknown = command->remaining();
        text =
            unknown.empty() ? "say what to do" : "there is no command \"" + unknown.front() + "\"";
    }
    return "orlith: " + text + "\n`" + words + " --help` tells more.\n";
}

}  // namespace

void declareProgram(CLI::App& program, CommandSet& commands) {
    program.name("orlith");
    program.description("Syncs folders of media to devices, and devices with each other");
    program.require_subcommand(1);
    program.footer(std::string(Examples) + exitCodeHelp());
    program.set_version_flag("--version", "orlith 0.1.0");
    program.failure_message(failureText);
    addSyncCommands(commands);
    addDeviceCommands(commands);
    addEditCommands(commands);
    addMirrorCommands(commands);
    addChangeCommands(commands);
    addFetchCommands(commands);
    addReportCommands(commands);
    addBackupCommands(commands);
}

int runCommandLine(int argumentCount, const char* const* arguments) {
    CLI::App program;
    CommandSet commands(program);
    declareProgram(program, commands);
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
