#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <functional>

#include "host/commands/command_set.h"
#include "host/commands/pages/completions.h"
#include "host/commands/pages/man_page.h"

namespace host {
namespace {

using testing::HasSubstr;
using testing::Not;

class CommandPages : public testing::Test {
protected:
    CommandPages() : commands(program) {
        declareProgram(program, commands);
        orlith = modelOf(program);
    }

    void forEach(const CommandModel& command,
                 const std::function<void(const CommandModel&)>& visit) {
        visit(command);
        for (const CommandModel& below : command.commands)
            forEach(below, visit);
    }
    static std::string dashed(std::string text) {
        for (std::size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2)
            text.insert(at, "\\");
        return text;
    }

    CLI::App program;
    CommandSet commands;
    CommandModel orlith;
};

TEST_F(CommandPages, TheModelHoldsEveryCommandAndOption) {
    EXPECT_GT(orlith.commands.size(), 15u);
    forEach(orlith, [](const CommandModel& command) {
        EXPECT_FALSE(command.purpose.empty()) << command.path;
        ASSERT_FALSE(command.options.empty()) << command.path;
        EXPECT_EQ(command.options.front().names.front(), "--help") << command.path;
    });
}

TEST_F(CommandPages, EveryCommandAndOptionStandsInItsManPage) {
    const std::string whole = manPageOfProgram(orlith, 1).text;
    for (const CommandModel& command : orlith.commands) {
        const ManPage page = manPageOfCommand(command);
        EXPECT_THAT(whole, HasSubstr(dashed("orlith-" + command.name) + "\\fR(1)"));
        EXPECT_EQ(page.name, "orlith-" + command.name + ".1");
        EXPECT_THAT(page.text, HasSubstr(".SH \"EXIT STATUS\""));
        forEach(command, [&](const CommandModel& part) {
            EXPECT_THAT(page.text, HasSubstr(dashed(part.path)));
            for (const OptionModel& option : part.options)
                for (const std::string& name : option.names)
                    EXPECT_THAT(page.text, HasSubstr("\\fB" + dashed(name) + "\\fR")) << part.path;
            for (const OptionModel& positional : part.positionals)
                EXPECT_THAT(page.text, HasSubstr("\\fI" + dashed(positional.value) + "\\fR"));
        });
    }
}

TEST_F(CommandPages, EveryCommandAndOptionIsCompletedInEveryShell) {
    const std::string bash = bashCompletion(orlith), zsh = zshCompletion(orlith),
                      fish = fishCompletion(orlith);
    forEach(orlith, [&](const CommandModel& command) {
        if (&command != &orlith) {
            EXPECT_THAT(bash, HasSubstr(" " + command.name + "\"")) << command.path;
            EXPECT_THAT(zsh, HasSubstr("'" + command.name + ":")) << command.path;
            EXPECT_THAT(fish, HasSubstr(" -a " + command.name + " ")) << command.path;
        }
        for (const OptionModel& option : command.options)
            for (const std::string& name : option.names) {
                EXPECT_THAT(bash, HasSubstr(name)) << command.path;
                EXPECT_THAT(zsh, HasSubstr(name + "[")) << command.path;
                EXPECT_THAT(fish, HasSubstr(name.starts_with("--") ? " -l " + name.substr(2)
                                                                   : " -s " + name.substr(1)))
                    << command.path;
            }
    });
}

TEST_F(CommandPages, NoTextIsTakenForAnInstruction) {
    CommandModel command;
    command.name = "odd";
    command.path = "orlith odd";
    command.purpose = ".TH it's \\n 'quoted' `so` [x]: ~";
    command.options.push_back({{"--flag"}, "", "it's [here]: \\ done"});
    command.footer = "\n.SH no heading\nExample:\n  .B orlith\n\nExit codes:\n  0    done\n";
    const std::string page = manPageOfCommand(command).text;
    EXPECT_THAT(page, HasSubstr("\n\\&.TH it\\(aqs \\en"));
    EXPECT_THAT(page, HasSubstr("\n.SH NOTES\n"));
    EXPECT_THAT(page, HasSubstr("\n\\&.SH no heading\n"));
    EXPECT_THAT(page, HasSubstr("\n.SH EXAMPLES\n.PP\n.EX\n"));
    CommandModel program;
    program.name = program.path = "orlith";
    program.commands.push_back(command);
    EXPECT_THAT(zshCompletion(program), HasSubstr(R"('--flag[it'\''s \[here\]\: \\ done]')"));
    EXPECT_THAT(fishCompletion(program), HasSubstr(R"(-d 'it\'s [here]: \\ done')"));
}

TEST_F(CommandPages, AKindOfMediaIsOfferedToFishWithoutTheOptionsOwnText) {
    EXPECT_THAT(fishCompletion(orlith), HasSubstr(R"( -l kinds -x -a 'music\\t audiobook\\t )"));
}

}  // namespace
}  // namespace host
