#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char BackupExamples[] = R"(
A backup holds the library with its ratings, counts and playlists, the list of downloads, and the
files that nobody could give again. What comes from the folder or from a store is not in it: after a
restore it is brought again. The device may be in use meanwhile.

Example:
  orlith backup --device ~/player --output ~/player.backup
)";

constexpr char RestoreExamples[] = R"(
Everything in the backup is looked at before anything on the device changes, and the library as it
was is kept, in var/mobile/Media/Replaced below the device's directory. Whatever interrupts a restore,
run it again. Afterwards, `orlith sync` brings the files from the folder; tracks that were bought are
fetched by the device itself.

Without --from, the device's directory came back by other means, without its media files: the library
is told so. Tracks that were bought and podcasts wait for their files; all others leave the library
until the next `orlith sync` brings them back, with their ratings, counts and places in playlists.

Examples:
  orlith restore --device ~/player --from ~/player.backup
  orlith restore --device ~/spare --from ~/player.backup --replace
  orlith restore --device ~/player
)";

struct BackupArguments {
    CommonOptions common;
    std::string output;
};

struct RestoreArguments {
    CommonOptions common;
    RestoreOptions options;
};

}  // namespace

void addBackupCommands(CommandSet& commands) {
    commands.beginGroup("Backups");
    const auto backup = std::make_shared<BackupArguments>();
    commands
        .addOnDevice({"backup",
                      "Put what belongs in a backup into one file",
                      BackupExamples,
                      {ExitCode::NoSpace, ExitCode::Interrupted}},
                     backup->common, [backup] { return runBackup(backup->common, backup->output); })
        .add_option("--output", backup->output, "The file; what is there is replaced at the end")
        ->required()
        ->type_name("FILE");
    const auto restore = std::make_shared<RestoreArguments>();
    CLI::App& command = commands.addOnDevice(
        {"restore",
         "Bring a device back from a backup",
         RestoreExamples,
         {ExitCode::Busy, ExitCode::NoSpace, ExitCode::DeleteGuard, ExitCode::Interrupted}},
        restore->common, [restore] { return runRestore(restore->common, restore->options); });
    command.get_option("--device")->description("The device's directory; --from makes it");
    command.add_option("--from", restore->options.from, "The backup")->type_name("FILE");
    command.add_flag("--replace", restore->options.replace,
                     "Also in place of another device's library, or where no file is missing");
}

}  // namespace host
