// Purpose: the commands of `orlith`, one function each; they return the exit code.
// Thread: the main thread.
// Failure: told on the error output, and in JSON as {"type":"error"}.
#pragma once

#include <cstdint>
#include <string>

#include "host/commands/exit_code.h"
#include "host/session/sync_run.h"

namespace host {

struct CommonOptions {
    std::string deviceDirectory;
    bool json = false;
};

ExitCode runSync(const SyncOptions& options, const CommonOptions& common);
ExitCode runListTracks(const CommonOptions& common);
ExitCode runListPlaylists(const CommonOptions& common);
ExitCode runStatus(const CommonOptions& common);
ExitCode runRate(const CommonOptions& common, const std::string& track, std::uint32_t stars);
ExitCode runPlayed(const CommonOptions& common, const std::string& track);
ExitCode runWatch(const CommonOptions& common);

// The whole program: understands the arguments and runs the command.
int runCommandLine(int argumentCount, const char* const* arguments);

}  // namespace host
