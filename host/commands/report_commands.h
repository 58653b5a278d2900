// Purpose: the commands that ask a device about its media outside of a sync, and its accounts.
// Thread: the main thread.
// Failure: as of commands.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/commands/commands.h"

namespace host {

ExitCode runBackupPaths(const CommonOptions& common);
ExitCode runMetrics(const CommonOptions& common);
// Names of those that the library's items were bought with.
ExitCode runAccountNames(const CommonOptions& common);
ExitCode runDisabledTypes(const CommonOptions& common);
// The next sync begins from nothing.
ExitCode runClear(const CommonOptions& common);
// "field=value" each; the track's metadata as the host gives them.
ExitCode runUpdate(const CommonOptions& common, const std::string& track,
                   const std::vector<std::string>& assignments);

// ---- The accounts that a device knows by name.
ExitCode runListAccounts(const CommonOptions& common);
ExitCode runAddAccount(const CommonOptions& common, std::int64_t account, const std::string& name);
ExitCode runRemoveAccount(const CommonOptions& common, std::int64_t account);

}  // namespace host
