#include "host/commands/pages/completions.h"

#include <fmt/format.h>

#include <functional>
#include <sstream>

#include "host/scan/media_kind.h"

namespace host {

namespace {

// As the rules name them, with spaces between.
std::string mediaKinds() {
    std::string names = mediaTypeNames();
    for (char& letter : names)
        if (letter == ',')
            letter = ' ';
    return names;
}

void forEach(const CommandModel& command, const std::function<void(const CommandModel&)>& visit) {
    visit(command);
    for (const CommandModel& below : command.commands)
        forEach(below, visit);
}

// The words after the program's name.
std::string wordsOf(const CommandModel& command) {
    const std::size_t space = command.path.find(' ');
    return space == std::string::npos ? "" : command.path.substr(space + 1);
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
    return fmt::format("{}", fmt::join(words, separator));
}

// A command's options, and those of the command that it is an action of.
std::vector<OptionModel> optionsOf(const CommandModel& command, const CommandModel* parent) {
    std::vector<OptionModel> options = command.options;
    if (parent != nullptr)
        for (const OptionModel& option : parent->options)
            if (option.names.front() != "--help")
                options.push_back(option);
    return options;
}

using VisitWithParent = std::function<void(const CommandModel&, const CommandModel* parent)>;

// Parents only where a command's options are its actions' too.
void forEachWithParent(const CommandModel& command, const CommandModel* parent,
                       const VisitWithParent& visit) {
    visit(command, parent);
    for (const CommandModel& below : command.commands)
        forEachWithParent(below, below.group == "Actions" ? &command : nullptr, visit);
}

// ---- bash

const char* bashAction(ValueKind kind) {
    switch (kind) {
        case ValueKind::Directory:
            return "directories";
        case ValueKind::File:
            return "files";
        case ValueKind::MediaKind:
            return "kinds";
        case ValueKind::Other:
            break;
    }
    return "nothing";
}

std::string bashName(const CommandModel& program) {
    return "_" + program.name;
}

}  // namespace

std::string bashCompletion(const CommandModel& program) {
    std::string commands, values, words, places;
    forEachWithParent(
        program, nullptr, [&](const CommandModel& command, const CommandModel* parent) {
            const std::string path = wordsOf(command);
            std::vector<std::string> offered;
            for (const CommandModel& below : command.commands) {
                commands += fmt::format("            \"{} {}\") ;;\n", path, below.name);
                offered.push_back(below.name);
            }
            for (const OptionModel& option : optionsOf(command, parent)) {
                offered.insert(offered.end(), option.names.begin(), option.names.end());
                if (option.value.empty())
                    continue;
                for (const std::string& name : option.names)
                    values += fmt::format("        \"{} {}\") what={} ;;\n", path, name,
                                          bashAction(option.kind));
            }
            words += fmt::format("        \"{}\") words=\"{}\" ;;\n", path, joined(offered, " "));
            if (!command.positionals.empty() &&
                command.positionals.front().kind != ValueKind::Other)
                places += fmt::format("        \"{}\") what={} ;;\n", path,
                                      bashAction(command.positionals.front().kind));
        });
    // Of a path of words below the program, and a value's option after it.
    return fmt::format(R"(# bash completion for {0}; made from its own commands
{1}_value() {{
    local what=
    case "$1" in
{3}        *) return 1 ;;
    esac
    printf %s "$what"
}}
{1}_is_command() {{
    case "$1" in
{2}            *) return 1 ;;
    esac
}}
{1}_offer() {{
    case "$1" in
        directories) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$2") ;;
        files) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$2") ;;
        kinds) mapfile -t COMPREPLY < <(compgen -W "{6}" -- "$2") ;;
    esac
}}
{1}() {{
    local cur=${{COMP_WORDS[COMP_CWORD]}} path= word what= words= i
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${{COMP_WORDS[i]}}
        if [[ $word == -* ]]; then
            if what=$({1}_value "$path $word"); then
                ((i + 1 == COMP_CWORD)) && {{ {1}_offer "$what" "$cur"; return; }}
                ((++i))
            fi
        elif {1}_is_command "$path $word"; then
            path=${{path:+$path }}$word
        fi
    done
    case "$path" in
{4}    esac
    what=
    case "$path" in
{5}        *) ;;
    esac
    if [[ $cur != -* && -n $what ]]; then
        {1}_offer "$what" "$cur"
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
    fi
}}
complete -F {1} {0}
)",
                       program.name, bashName(program), commands, values, words, places,
                       mediaKinds());
}

// ---- zsh

namespace {

std::string zshText(const std::string& text) {
    std::string out;
    for (const char letter : text) {
        if (letter == '\n') {
            out += ' ';
            continue;
        }
        if (letter == '\'') {
            out += "'\\''";
            continue;
        }
        if (letter == '[' || letter == ']' || letter == ':' || letter == '\\')
            out += '\\';
        out += letter;
    }
    return out;
}

std::string zshAction(ValueKind kind) {
    switch (kind) {
        case ValueKind::Directory:
            return "_files -/";
        case ValueKind::File:
            return "_files";
        case ValueKind::MediaKind:
            return "(" + mediaKinds() + ")";
        case ValueKind::Other:
            break;
    }
    return " ";
}

std::string zshArguments(const CommandModel& command, const CommandModel* parent,
                         const std::string& indent) {
    std::string text;
    for (const OptionModel& option : optionsOf(command, parent))
        for (const std::string& name : option.names)
            text += fmt::format(" \\\n{}'{}{}[{}]{}'", indent, option.isRepeated ? "*" : "", name,
                                zshText(option.help),
                                option.value.empty() ? ""
                                                     : fmt::format(":{}:{}", zshText(option.value),
                                                                   zshAction(option.kind)));
    for (const OptionModel& positional : command.positionals)
        text += fmt::format(" \\\n{}'{}:{}:{}'", indent, positional.isRepeated ? "*" : "",
                            zshText(positional.value), zshAction(positional.kind));
    return text;
}

std::string zshFunction(const CommandModel& command) {
    std::string name = command.path;
    for (char& letter : name)
        if (letter == ' ')
            letter = '-';
    return "_" + name;
}

std::string zshDefinition(const CommandModel& command, const CommandModel* parent) {
    if (command.commands.empty())
        return fmt::format("{}() {{\n    _arguments -s{}\n}}\n", zshFunction(command),
                           zshArguments(command, parent, "        "));
    std::string names, cases;
    for (const CommandModel& below : command.commands) {
        names += fmt::format("        '{}:{}'\n", below.name, zshText(below.purpose));
        cases += fmt::format("                {}) {} ;;\n", below.name, zshFunction(below));
    }
    return fmt::format(R"({}() {{
    local curcontext="$curcontext" state line
    local -a commands
    commands=(
{}    )
    _arguments -C{} \
        '(-): :->command' \
        '*:: :->arguments'
    case $state in
        command) _describe command commands ;;
        arguments)
            case $words[1] in
{}            esac ;;
    esac
}}
)",
                       zshFunction(command), names, zshArguments(command, parent, "        "),
                       cases);
}

}  // namespace

std::string zshCompletion(const CommandModel& program) {
    std::string text =
        fmt::format("#compdef {0}\n# made from the commands of {0} itself\n", program.name);
    forEachWithParent(program, nullptr,
                      [&](const CommandModel& command, const CommandModel* parent) {
                          text += zshDefinition(command, parent);
                      });
    return text + fmt::format("{} \"$@\"\n", zshFunction(program));
}

// ---- fish

namespace {

std::string fishQuoted(const std::string& text) {
    std::string out = "'";
    for (const char letter : text) {
        if (letter == '\'' || letter == '\\')
            out += '\\';
        out += letter == '\n' ? ' ' : letter;
    }
    return out + "'";
}

// When the words before the cursor name the command and none of those below it.
std::string fishCondition(const CommandModel& command) {
    std::vector<std::string> below;
    for (const CommandModel& next : command.commands)
        below.push_back(next.name);
    std::string words = wordsOf(command), condition;
    while (!words.empty()) {
        const std::size_t space = words.find(' ');
        condition += (condition.empty() ? "" : "; and ") +
                     ("__fish_seen_subcommand_from " + words.substr(0, space));
        words = space == std::string::npos ? "" : words.substr(space + 1);
    }
    if (!below.empty())
        condition += (condition.empty() ? "" : "; and ") +
                     ("not __fish_seen_subcommand_from " + joined(below, " "));
    return condition;
}

// Each with an empty description of its own, or it would be shown with the option's.
std::string fishKinds() {
    std::string kinds;
    std::istringstream names(mediaKinds());
    for (std::string name; names >> name;)
        kinds += (kinds.empty() ? "" : " ") + name + "\\t";
    return kinds;
}

std::string fishValue(const OptionModel& option) {
    switch (option.kind) {
        case ValueKind::Directory:
            return " -x -a '(__fish_complete_directories)'";
        case ValueKind::File:
            return " -r -F";
        case ValueKind::MediaKind:
            return " -x -a " + fishQuoted(fishKinds());
        case ValueKind::Other:
            break;
    }
    return option.value.empty() ? "" : " -x";
}

}  // namespace

std::string fishCompletion(const CommandModel& program) {
    std::string text =
        fmt::format("# fish completion for {0}; made from its own commands\ncomplete -c {0} -f\n",
                    program.name);
    forEachWithParent(
        program, nullptr, [&](const CommandModel& command, const CommandModel* parent) {
            const std::string condition = fishCondition(command);
            const std::string start = fmt::format("complete -c {}", program.name) +
                                      (condition.empty() ? "" : " -n " + fishQuoted(condition));
            for (const CommandModel& below : command.commands)
                text +=
                    fmt::format("{} -a {} -d {}\n", start, below.name, fishQuoted(below.purpose));
            for (const OptionModel& option : optionsOf(command, parent)) {
                std::string names;
                for (const std::string& name : option.names)
                    names +=
                        name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
                text += fmt::format("{}{}{} -d {}\n", start, names, fishValue(option),
                                    fishQuoted(option.help));
            }
            for (const OptionModel& positional : command.positionals)
                if (positional.kind != ValueKind::Other)
                    text += start + fishValue(positional) + "\n";
        });
    return text;
}

}  // namespace host
