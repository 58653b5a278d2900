#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char ListExamples[] = R"(
Examples:
  orlith list --device ~/player
  orlith list --device ~/player --playlists --json
  orlith list --device ~/player --playlist "On the road"
)";

constexpr char StatusExamples[] = R"(
What failed in the last sync is listed with its reason and what helps. The next sync sends it first; what has
arrived, or left the folder, leaves the list.

Example:
  orlith status --device ~/player
)";

struct ListArguments {
    CommonOptions common;
    bool playlists = false;
    std::string playlist;
};

}  // namespace

void addDeviceCommands(CommandSet& commands) {
    commands.beginGroup("What is on a device");
    const auto list = std::make_shared<ListArguments>();
    CLI::App& command = commands.addOnDevice(
        {"list", "Show the tracks of a device", ListExamples}, list->common, [list] {
            if (list->playlists)
                return runListPlaylists(list->common);
            return list->playlist.empty() ? runListTracks(list->common)
                                          : runListPlaylist(list->common, list->playlist);
        });
    CLI::Option* all =
        command.add_flag("--playlists", list->playlists, "Show its playlists instead");
    command
        .add_option(
            "--playlist", list->playlist,
            "Show the tracks of this one in its order; its id, or its name when only one has it")
        ->type_name("PLAYLIST")
        ->excludes(all);
    const auto status = std::make_shared<CommonOptions>();
    commands.addOnDevice({"status", "Show how a device is", StatusExamples}, *status,
                         [status] { return runStatus(*status); });
}

}  // namespace host
