#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char ListExamples[] = R"(
Examples:
  orlith list --device ~/player
  orlith list --device ~/player --playlists --json
)";

constexpr char StatusExamples[] = R"(
Example:
  orlith status --device ~/player
)";

struct ListArguments {
    CommonOptions common;
    bool playlists = false;
};

}  // namespace

void addDeviceCommands(CommandSet& commands) {
    commands.beginGroup("What is on a device");
    const auto list = std::make_shared<ListArguments>();
    commands
        .addOnDevice("list", "Show the tracks of a device", ListExamples, list->common,
                     [list] {
                         return list->playlists ? runListPlaylists(list->common)
                                                : runListTracks(list->common);
                     })
        .add_flag("--playlists", list->playlists, "Show its playlists instead");
    const auto status = std::make_shared<CommonOptions>();
    commands.addOnDevice("status", "Show how a device is", StatusExamples, *status,
                         [status] { return runStatus(*status); });
}

}  // namespace host
