#include <CLI/CLI.hpp>
#include <optional>

#include "host/commands/commands.h"
#include "host/commands/output.h"

namespace host {

namespace {

// What the arguments were understood as.
struct Request {
    CommonOptions common;
    SyncOptions sync;
    bool playlists = false;
    std::string track;
    std::uint32_t stars = 0;
};

constexpr char Examples[] = R"(
Examples:
  orlith sync ~/Music --device ~/player --dry-run    what would be done, by name and size
  orlith sync ~/Music --device ~/player              nothing is deleted unless --delete is given
  orlith list --device ~/player --playlists
  orlith rate --device ~/player "A title" 4          as the device's owner would

A device is a directory; it is made when it is missing. What the host remembers of it lies in
$XDG_STATE_HOME/orlith (~/.local/state/orlith).
)";

CLI::App* addCommand(CLI::App& program, Request& request, const char* name, const char* purpose) {
    CLI::App* command = program.add_subcommand(name, purpose);
    command->add_option("--device", request.common.deviceDirectory, "The device's directory")
        ->required()
        ->type_name("DIR");
    command->add_flag("--json", request.common.json, "One JSON object a line");
    return command;
}

void addSync(CLI::App& program, Request& request) {
    CLI::App* sync =
        addCommand(program, request, "sync", "Bring a device's library in line with a folder");
    SyncOptions& options = request.sync;
    sync->add_option("FOLDER", options.folder, "The folder of media files and playlists")
        ->required();
    sync->add_flag("--delete", options.plan.remove,
                   "Remove from the device what the folder holds no more");
    sync->add_option("--max-delete", options.plan.maximumRemovals,
                     "Stop when more than N would be removed (without it: more than half)")
        ->type_name("N");
    sync->add_flag("--reset", options.plan.reset,
                   "Let the device take in the whole list anew; the files are sent again");
    sync->add_flag("--dry-run", options.dryRun, "Show what would be done, and do nothing");
    sync->add_option("--upload", options.uploads,
                     "Bring a track of the device back, by its id; may be repeated")
        ->type_name("ID")
        ->allow_extra_args(false);
    sync->add_flag("--delete-after-upload", options.deleteAfterUpload,
                   "Remove from the device what was brought back");
    sync->add_flag("--send-removed", options.plan.sendRemoved,
                   "Send also what was removed on the device by its owner");
    sync->add_flag_callback(
        "--no-kenning", [&options] { options.withRecommendations = false; },
        "Send no recommendation data");
}

void addCommands(CLI::App& program, Request& request) {
    addSync(program, request);
    addCommand(program, request, "list", "Show the tracks of a device")
        ->add_flag("--playlists", request.playlists, "Show its playlists instead");
    addCommand(program, request, "status", "Show how a device is");
    CLI::App* rate = addCommand(program, request, "rate", "Rate a track on a device");
    rate->add_option("TRACK", request.track, "Its id, or its title when only one has it")
        ->required();
    rate->add_option("STARS", request.stars, "0 to 5; 0 takes the rating away")
        ->required()
        ->check(CLI::Range(0, 5));
    CLI::App* played = addCommand(program, request, "played", "Count a track as played once more");
    played->add_option("TRACK", request.track, "Its id, or its title when only one has it")
        ->required();
    addCommand(program, request, "watch", "Follow a running sync from another terminal");
}

ExitCode runRequest(const std::string& command, Request& request) {
    if (command == "sync") {
        request.sync.deviceDirectory = request.common.deviceDirectory;
        return runSync(request.sync, request.common);
    }
    if (command == "list")
        return request.playlists ? runListPlaylists(request.common) : runListTracks(request.common);
    if (command == "status")
        return runStatus(request.common);
    if (command == "rate")
        return runRate(request.common, request.track, request.stars);
    if (command == "played")
        return runPlayed(request.common, request.track);
    return runWatch(request.common);
}

}  // namespace

int runCommandLine(int argumentCount, const char* const* arguments) {
    CLI::App program("Syncs folders of media to devices", "orlith");
    program.require_subcommand(1);
    program.footer(std::string(Examples) + ExitCodeHelp);
    program.set_version_flag("--version", "orlith 0.1.0");
    Request request;
    addCommands(program, request);
    for (CLI::App* command : program.get_subcommands({}))
        command->footer(ExitCodeHelp);
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        // Help goes to the standard output and is no failure; all else is wrong usage.
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return program.exit(error);
        program.exit(error);
        return static_cast<int>(ExitCode::Usage);
    }
    if (request.sync.deleteAfterUpload && request.sync.uploads.empty()) {
        complain("--delete-after-upload needs at least one --upload");
        return static_cast<int>(ExitCode::Usage);
    }
    return static_cast<int>(runRequest(program.get_subcommands().front()->get_name(), request));
}

}  // namespace host
