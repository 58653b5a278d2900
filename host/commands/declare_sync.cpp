#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char SyncExamples[] = R"(
Examples:
  orlith sync ~/Music --device ~/player --dry-run
  orlith sync ~/Music --device ~/player --delete --max-delete 10
  orlith sync ~/Music --device ~/player --upload 123456789
)";

constexpr char WatchExamples[] = R"(
Example:
  orlith watch --device ~/player       in another terminal, while a sync runs
)";

struct SyncArguments {
    CommonOptions common;
    SyncOptions sync;
};

void addSync(CommandSet& commands) {
    const auto given = std::make_shared<SyncArguments>();
    CLI::App& sync = commands.addOnDevice({"sync",
                                           "Bring a device's library in line with a folder",
                                           SyncExamples,
                                           {ExitCode::PartlyDone, ExitCode::Busy, ExitCode::NoSpace,
                                            ExitCode::DeleteGuard, ExitCode::Interrupted}},
                                          given->common, [given] {
                                              given->sync.deviceDirectory =
                                                  given->common.deviceDirectory;
                                              return runSync(given->sync, given->common);
                                          });
    SyncOptions& options = given->sync;
    sync.add_option("FOLDER", options.folder, "The folder of media files and playlists")
        ->required();
    sync.add_flag("--delete", options.plan.remove,
                  "Remove from the device what the folder holds no more");
    sync.add_option("--max-delete", options.plan.maximumRemovals,
                    "Stop when more than N would be removed (without it: more than half)")
        ->type_name("N");
    sync.add_flag("--reset", options.plan.reset,
                  "Let the device take in the whole list anew; the files are sent again");
    sync.add_flag("--dry-run", options.dryRun, "Show what would be done, and do nothing");
    CLI::Option* upload =
        sync.add_option("--upload", options.uploads,
                        "Bring a track of the device back, by its id; may be repeated")
            ->type_name("ID")
            ->allow_extra_args(false);
    sync.add_flag("--delete-after-upload", options.deleteAfterUpload,
                  "Remove from the device what was brought back")
        ->needs(upload);
    sync.add_flag("--send-removed", options.plan.sendRemoved,
                  "Send also what was removed on the device by its owner");
    sync.add_flag_callback(
        "--no-kenning", [&options] { options.withRecommendations = false; },
        "Send no recommendation data");
}

}  // namespace

void addSyncCommands(CommandSet& commands) {
    commands.beginGroup("A folder and a device");
    addSync(commands);
    const auto watch = std::make_shared<CommonOptions>();
    commands.addOnDevice({"watch",
                          "Follow a running sync from another terminal",
                          WatchExamples,
                          {ExitCode::Interrupted}},
                         *watch, [watch] { return runWatch(*watch); });
}

}  // namespace host
