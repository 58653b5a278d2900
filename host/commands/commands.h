// Purpose: the commands of `orlith`, one function each; they return the exit code.
// Thread: the main thread.
// Failure: told on the error output, and in JSON as {"type":"error"}.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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
// Its tracks, in order; named by id or name.
ExitCode runListPlaylist(const CommonOptions& common, const std::string& playlist);
ExitCode runStatus(const CommonOptions& common);
struct SimilarOptions {
    std::string track;
    std::optional<std::uint32_t> count;  // else as many as the device's settings say
};
ExitCode runSimilar(const CommonOptions& common, const SimilarOptions& options);
struct CheckOptions {
    bool repairs = false;  // mend what can be mended
    bool full = false;     // read the media files as well
};
// Whether what the device holds agrees with itself. PartlyDone while something is left that does
// not agree.
ExitCode runCheck(const CommonOptions& common, const CheckOptions& options);
ExitCode runWatch(const CommonOptions& common);

// ---- What a device's owner changes. Tracks and playlists are named by id or by title or name.
ExitCode runRate(const CommonOptions& common, const std::string& track, std::uint32_t stars);
ExitCode runPlayed(const CommonOptions& common, const std::string& track);
// "field=value" each; understood before the device is asked.
ExitCode runEdit(const CommonOptions& common, const std::string& track,
                 const std::vector<std::string>& assignments);

// Everywhere: other devices and the host obey.
ExitCode runDelete(const CommonOptions& common, const std::string& track);

struct PlaylistEdit {
    enum class Action { Create, Add, Remove, Move, Rename, Delete };
    Action action = Action::Create;
    std::string playlist;
    std::vector<std::string> tracks;
    // Positions as people count them, from 1.
    std::optional<std::uint32_t> position;
    std::uint32_t newPosition = 1;
    std::string name;
    // Create: of a smart playlist, as people write them.
    std::string rules;
    std::vector<std::string> limit;  // its words
};
ExitCode runPlaylist(const CommonOptions& common, const PlaylistEdit& edit);

// ---- Between devices.
struct MirrorOptions {
    std::string from;  // directories of devices
    std::string to;
    std::uint32_t mediaTypes = 0;  // bits; 0 for all
    bool follow = false;
    bool json = false;
};
ExitCode runMirror(const MirrorOptions& options);

struct ExportOptions {
    std::int64_t after = 0;
    std::int64_t upTo = 0;  // 0: as far as the library stands
    std::uint32_t syncType = 0;
    std::string output;  // a file; empty: the standard output
};
ExitCode runExport(const CommonOptions& common, const ExportOptions& options);
ExitCode runImport(const CommonOptions& common, const std::string& file);
ExitCode runRevision(const CommonOptions& common);
ExitCode runResetChanges(const CommonOptions& common);
ExitCode runAssets(const CommonOptions& common);
ExitCode runQorx(const std::string& file, bool json);

// ---- From stores and the cloud.
struct DownloadOptions {
    std::string url;
    std::string title;
    std::string track;
    std::uint64_t item = 0;
    std::uint64_t account = 0;
    bool temporary = false;
};
ExitCode runDownload(const CommonOptions& common, const DownloadOptions& options);
ExitCode runListDownloads(const CommonOptions& common);
ExitCode runCancelDownload(const CommonOptions& common, std::int64_t download);
ExitCode runCloudSignIn(const CommonOptions& common, bool hasKenningData);
ExitCode runCloudSignOut(const CommonOptions& common);

// ---- Backups.
ExitCode runBackup(const CommonOptions& common, const std::string& file);
struct RestoreOptions {
    std::string from;      // a backup; empty: the directory came back by other means
    bool replace = false;  // also in place of another device's library
};
ExitCode runRestore(const CommonOptions& common, const RestoreOptions& options);

// The whole program: understands the arguments and runs the command.
int runCommandLine(int argumentCount, const char* const* arguments);

}  // namespace host
