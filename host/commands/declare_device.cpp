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

constexpr char CheckExamples[] = R"(
Looks at the database, media files, pictures, the staging area, revisions, playlists, chapters and
recommendation data, and says each thing that does not agree and what --repair does about it. Media
files are told by their sizes; --full reads each of them whole and finds what has changed on the disk,
which takes as long as reading all of the music. Ctrl-C ends it.

A repair loses no track, rating or playlist. A track whose file is gone waits for it: the next sync or mirror
brings it. Files and pictures that nobody owns go to var/mobile/Media/Set_Aside on the device, and a
damaged database stays beside the new one, into which all that can still be read is carried; nothing of
them is deleted.

Examples:
  orlith check --device ~/player
  orlith check --device ~/player --repair
  orlith check --device ~/player --full
)";

struct CheckArguments {
    CommonOptions common;
    CheckOptions options;
};

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

void addCheck(CommandSet& commands) {
    const auto given = std::make_shared<CheckArguments>();
    CLI::App& check = commands.addOnDevice(
        {"check",
         "Check that what a device holds agrees with itself",
         CheckExamples,
         {ExitCode::PartlyDone, ExitCode::Busy, ExitCode::Interrupted}},
        given->common, [given] { return runCheck(given->common, given->options); });
    check.add_flag("--repair", given->options.repairs, "Mend what can be mended");
    check.add_flag("--full", given->options.full,
                   "Read each media file, and compare it with what came");
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
    addCheck(commands);
}

}  // namespace host
