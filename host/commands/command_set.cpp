#include "host/commands/command_set.h"

namespace host {

CLI::App& CommandSet::add(const CommandText& text, bool& json, Run run) {
    CLI::App* command = _program.add_subcommand(text.name, text.purpose);
    command->group(_group);
    command->footer(std::string(text.examples) + "\n" + exitCodeHelp(text.exitCodes));
    command->add_flag("--json", json, "One JSON object a line, the summary last");
    if (run)
        command->callback([this, run = std::move(run)] { _chosen = run; });
    return *command;
}

CLI::App& CommandSet::addOnDevice(CommandText text, CommonOptions& common, Run run) {
    text.exitCodes.push_back(ExitCode::NotFound);
    CLI::App& command = add(text, common.json, std::move(run));
    command.add_option("--device", common.deviceDirectory, "The device's directory")
        ->required()
        ->type_name("DIR");
    return command;
}

CLI::App& CommandSet::addAction(CLI::App& command, const char* name, const char* purpose, Run run) {
    command.require_subcommand(1);
    CLI::App* action = command.add_subcommand(name, purpose);
    action->group("Actions");
    action->fallthrough();
    action->footer("\n--device DIR and --json belong to it too; `orlith " + command.get_name() +
                   " --help` has examples.\n");
    action->callback([this, run = std::move(run)] { _chosen = run; });
    return *action;
}

void addAssignments(CLI::App& command, std::vector<std::string>& assignments) {
    command.add_option("FIELD=VALUE", assignments, "What to set; several may be given")
        ->required()
        ->check([](const std::string& text) {
            return text.find('=') == std::string::npos || text.front() == '='
                       ? "\"" + text + "\" is not FIELD=VALUE"
                       : std::string();
        });
}

}  // namespace host
