#include "host/commands/command_set.h"

namespace host {

CLI::App& CommandSet::add(const char* name, const char* purpose, const char* examples, bool& json,
                          Run run) {
    CLI::App* command = _program.add_subcommand(name, purpose);
    command->group(_group);
    command->footer(std::string(examples) + "\n" + ExitCodeHelp);
    command->add_flag("--json", json, "One JSON object a line, the summary last");
    if (run)
        command->callback([this, run = std::move(run)] { _chosen = run; });
    return *command;
}

CLI::App& CommandSet::addOnDevice(const char* name, const char* purpose, const char* examples,
                                  CommonOptions& common, Run run) {
    CLI::App& command = add(name, purpose, examples, common.json, std::move(run));
    command.add_option("--device", common.deviceDirectory, "The device's directory")
        ->required()
        ->type_name("DIR");
    return command;
}

CLI::App& CommandSet::addAction(CLI::App& command, const char* name, const char* purpose, Run run) {
    command.require_subcommand(1);
    CLI::App* action = command.add_subcommand(name, purpose);
    action->fallthrough();
    action->callback([this, run = std::move(run)] { _chosen = run; });
    return *action;
}

}  // namespace host
