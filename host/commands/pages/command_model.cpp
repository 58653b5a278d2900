#include "host/commands/pages/command_model.h"

#include <CLI/CLI.hpp>

namespace host {

namespace {

ValueKind kindOf(const std::string& value) {
    if (value == "DIR" || value == "FOLDER")
        return ValueKind::Directory;
    if (value == "FILE" || value == "SOCKET")
        return ValueKind::File;
    return value.starts_with("KIND") ? ValueKind::MediaKind : ValueKind::Other;
}

OptionModel modelOf(const CLI::Option& option) {
    OptionModel model;
    for (const std::string& name : option.get_lnames())
        model.names.push_back("--" + name);
    for (const std::string& name : option.get_snames())
        model.names.push_back("-" + name);
    if (option.get_positional())
        model.value = option.get_name(true, false);
    else if (option.get_items_expected_max() > 0)
        model.value = option.get_type_name().empty() ? "TEXT" : option.get_type_name();
    model.help = option.get_description();
    model.kind = kindOf(model.value);
    model.isRequired = option.get_required();
    model.isRepeated = option.get_items_expected_max() > 1;
    return model;
}

CommandModel modelOf(const CLI::App& command, const std::string& parents) {
    CommandModel model;
    model.name = command.get_name();
    model.path = parents.empty() ? model.name : parents + " " + model.name;
    model.purpose = command.get_description();
    model.group = command.get_group();
    model.footer = command.get_footer();
    for (const CLI::Option* option :
         command.get_options([](const CLI::Option* o) { return !o->get_group().empty(); }))
        (option->get_positional() ? model.positionals : model.options).push_back(modelOf(*option));
    for (const CLI::App* below :
         command.get_subcommands([](const CLI::App* app) { return !app->get_group().empty(); }))
        model.commands.push_back(modelOf(*below, model.path));
    return model;
}

}  // namespace

CommandModel modelOf(const CLI::App& program) {
    return modelOf(program, "");
}

std::string synopsisOf(const CommandModel& command) {
    std::string text = command.path;
    bool hasMore = false;
    for (const OptionModel& option : command.options) {
        if (option.isRequired)
            text += " " + option.names.front() + " " + option.value;
        hasMore = hasMore || !option.isRequired;
    }
    if (hasMore)
        text += " [options]";
    if (!command.commands.empty())
        text += command.commands.front().group == "Actions" ? " ACTION" : " COMMAND";
    for (const OptionModel& positional : command.positionals) {
        const std::string value = positional.value + (positional.isRepeated ? "..." : "");
        text += positional.isRequired ? " " + value : " [" + value + "]";
    }
    return text;
}

}  // namespace host
