// Purpose: gathers the commands of `orlith`: each family declares its own, and the one that the
// arguments name is run once all of them have been understood.
// Thread: the main thread.
// Ownership: borrows the parser; what a command's options are stored in is kept alive by its `run`.
// Failure: none; the parser reports wrong usage.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <vector>

#include "host/commands/commands.h"

namespace host {

// What --help says of a command.
struct CommandText {
    const char* name;
    const char* purpose;
    const char* examples;                  // below its options
    std::vector<ExitCode> exitCodes = {};  // that it can give beside 0, 1 and 2
};

class CommandSet {
public:
    using Run = std::function<ExitCode()>;

    // `group` is the heading under which --help lists the commands that follow.
    explicit CommandSet(CLI::App& program) : _program(program) {}
    void beginGroup(const char* group) { _group = group; }

    // A command with --json.
    CLI::App& add(const CommandText& text, bool& json, Run run);
    // A command on one device, named by --device; if that is not there, it is not found.
    CLI::App& addOnDevice(CommandText text, CommonOptions& common, Run run);
    // One of the things that a command does; the command's own options may come after its.
    CLI::App& addAction(CLI::App& command, const char* name, const char* purpose, Run run);

    // After the parser is through.
    ExitCode run() const { return _chosen(); }

private:
    CLI::App& _program;
    const char* _group = "";
    Run _chosen;
};

inline constexpr char TrackHelp[] = "Its id, or its title when only one has it";
// Fields of a track and their new values, one or more.
void addAssignments(CLI::App& command, std::vector<std::string>& assignments);

// All of `orlith`.
void declareProgram(CLI::App& program, CommandSet& commands);

// The families, each in a file of its own.
void addSyncCommands(CommandSet& commands);
void addDeviceCommands(CommandSet& commands);
void addEditCommands(CommandSet& commands);
void addMirrorCommands(CommandSet& commands);
void addChangeCommands(CommandSet& commands);
void addFetchCommands(CommandSet& commands);
void addBackupCommands(CommandSet& commands);
void addReportCommands(CommandSet& commands);

}  // namespace host
