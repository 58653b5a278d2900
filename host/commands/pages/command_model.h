// Purpose: the commands of a program as man pages and completions see them, read once from its tree
// of
//          parsers.
// Thread: any.
// Failure: none.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace host {

// What a shell offers for a value.
enum class ValueKind { Other, Directory, File, MediaKind };

struct OptionModel {
    std::vector<std::string> names;  // with dashes, the long ones first; none of a positional
    std::string value;               // what stands for the value; empty for a flag
    std::string help;
    ValueKind kind = ValueKind::Other;
    bool isRequired = false;
    bool isRepeated = false;
};

struct CommandModel {
    std::string name;     // its last word
    std::string path;     // all of its words: "orlith playlist add"
    std::string purpose;  // may be several lines
    std::string group;    // heading of the list that it stands in
    std::string footer;   // free text: notes, examples, exit codes
    std::vector<OptionModel> options;
    std::vector<OptionModel> positionals;
    std::vector<CommandModel> commands;
};

// Hidden options and commands are left out.
CommandModel modelOf(const CLI::App& program);

// "orlith list --device DIR [options]"
std::string synopsisOf(const CommandModel& command);

}  // namespace host
