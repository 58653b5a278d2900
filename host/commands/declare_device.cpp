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

constexpr char SimilarExamples[] = R"(
The device answers by itself, from the recommendation data that hosts send with music. How many tracks it
offers, and how few are not worth offering, its hosts have said; --count asks for another number.

Examples:
  orlith similar --device ~/player "A title"
  orlith similar --device ~/player 123456789 --count 5 --json
)";

struct SimilarArguments {
    CommonOptions common;
    SimilarOptions similar;
};

struct ListArguments {
    CommonOptions common;
    bool playlists = false;
    std::string playlist;
};

void addSimilar(CommandSet& commands) {
    const auto given = std::make_shared<SimilarArguments>();
    CLI::App& similar = commands.addOnDevice(
        {"similar", "Find tracks of a device that are like one of them", SimilarExamples},
        given->common, [given] { return runSimilar(given->common, given->similar); });
    similar.add_option("TRACK", given->similar.track, "Its id, or its title when only one has it")
        ->required();
    similar.add_option("--count", given->similar.count, "So many at most")
        ->type_name("N")
        ->check(CLI::Range(1, 1000));
}

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
    addSimilar(commands);
    const auto status = std::make_shared<CommonOptions>();
    commands.addOnDevice({"status", "Show how a device is", StatusExamples}, *status,
                         [status] { return runStatus(*status); });
}

}  // namespace host
