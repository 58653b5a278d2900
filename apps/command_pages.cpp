// Writes the man pages and the shells' completions of orlith and orlithd, read from the programs'
// own commands: orlith-command-pages DIRECTORY
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "apps/orlithd_options.h"
#include "host/commands/command_set.h"
#include "host/commands/pages/completions.h"
#include "host/commands/pages/man_page.h"

namespace {

namespace fs = std::filesystem;

constexpr int CommandSection = 1;
constexpr int DaemonSection = 8;

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out << text;
    out.close();
}

void writeManPage(const fs::path& directory, const host::ManPage& page) {
    write(directory / "man" / page.name, page.text);
}

void writeCompletions(const fs::path& directory, const host::CommandModel& program) {
    write(directory / "bash" / program.name, host::bashCompletion(program));
    write(directory / "zsh" / ("_" + program.name), host::zshCompletion(program));
    write(directory / "fish" / (program.name + ".fish"), host::fishCompletion(program));
}

void writeAll(const fs::path& directory) {
    CLI::App program, daemon;
    host::CommandSet commands(program);
    OrlithdArguments arguments;
    host::declareProgram(program, commands);
    declareOrlithd(daemon, arguments);
    const host::CommandModel orlith = host::modelOf(program);
    const host::CommandModel orlithd = host::modelOf(daemon);
    writeManPage(directory, host::manPageOfProgram(orlith, CommandSection));
    writeManPage(directory, host::manPageOfProgram(orlithd, DaemonSection));
    for (const host::CommandModel& command : orlith.commands)
        writeManPage(directory, host::manPageOfCommand(command));
    writeCompletions(directory, orlith);
    writeCompletions(directory, orlithd);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: orlith-command-pages DIRECTORY\n", stderr);
        return 2;
    }
    try {
        fs::remove_all(argv[1]);
        writeAll(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orlith-command-pages: %s\n", error.what());
        return 1;
    }
}
