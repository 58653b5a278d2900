#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char TracksHelp[] = "Ids, or titles that only one has";
constexpr char PlaylistHelp[] = "Its id, or its name when only one has it";

constexpr char RateExamples[] = R"(
Examples:
  orlith rate --device ~/player "A title" 4
  orlith rate --device ~/player 123456789 0     takes the rating away
)";

constexpr char PlayedExamples[] = R"(
Example:
  orlith played --device ~/player "A title"
)";

constexpr char EditExamples[] = R"(
All values are set or none. A field without a value ("comment=") loses it.

Fields: title, artist, album, album-artist, composer, genre, comment, grouping, description, year, track,
track-count, disc, disc-count, bpm, compilation (yes or no), show, season, episode, episode-id,
sort-title, sort-artist, sort-album, sort-album-artist.

Examples:
  orlith edit --device ~/player "A titel" title="A title"
  orlith edit --device ~/player 123456789 artist="Someone else" year=1994 comment=
)";

constexpr char DeleteExamples[] = R"(
The track leaves this device, and others as they mirror from it. The file in a host's folder stays; the
host does not send it again unless --send-removed is given.

Example:
  orlith delete --device ~/player "A title"
)";

constexpr char PlaylistExamples[] = R"(
Positions count from 1, as `orlith list --playlist NAME` shows them. A track may stand in a playlist more than once.

Examples:
  orlith playlist create --device ~/player "On the road" "First song" "Second song"
  orlith playlist create --device ~/player "Best jazz" --smart "rating >= 4 and genre is Jazz"
  orlith playlist add --device ~/player "On the road" "Third song" --at 2
  orlith playlist move --device ~/player "On the road" 3 1       the third becomes the first
  orlith playlist remove --device ~/player "On the road" --at 2
  orlith playlist remove --device ~/player "On the road" "First song"
  orlith playlist rename --device ~/player "On the road" "At home"
  orlith playlist delete --device ~/player "At home"             its tracks stay on the device
)";

constexpr char SmartRulesHelp[] = R"(
The rules of a smart playlist are conditions joined by "and", or by "or": a field, a question, a value.

  texts     title, artist, album, album-artist, genre, composer, comment, grouping, show
            is, is not, contains, does not contain, begins with, ends with; A to Z in any case.
            A value may be several words; one with "and", "or" or a sign in it stands in quotes.
  numbers   rating (0 to 5 stars), play-count, skip-count, year, disc, track, season, bpm,
            length (3:30 or seconds), size (8 MB, 1 GiB), bit-rate (kilobits a second)
            is or =, is not or !=, >, >=, <, <=
  dates     added, last-played, last-skipped
            in the last 2 weeks, not in the last 30 days, > 2024-05-31, is never
  others    kind is Music (or MusicVideo, Movie, TVEpisode, Podcast, VideoPodcast, Audiobook,
            TesselU, TesselUVideo, HomeVideo), compilation is yes
  all       every track; with --limit

--limit 25 keeps the 25 that were added last, --limit 25 by rating those with the highest; by lowest
FIELD turns it round. The device fills the playlist at once, after every change of its owner's and at the
end of every sync.

Examples:
  orlith playlist create --device ~/player "Best jazz" --smart "rating >= 4 and genre is Jazz"
  orlith playlist create --device ~/player Forgotten --smart "last-played not in the last 6 months"
  orlith playlist create --device ~/player Top --smart all --limit 50 by play-count

--device DIR and --json belong to it too.
)";

struct TrackArguments {
    CommonOptions common;
    std::string track;
    std::uint32_t stars = 0;
    std::vector<std::string> assignments;
};

struct PlaylistArguments {
    CommonOptions common;
    PlaylistEdit edit;
};

void addRate(CommandSet& commands) {
    const auto given = std::make_shared<TrackArguments>();
    CLI::App& rate = commands.addOnDevice(
        {"rate", "Rate a track on a device", RateExamples}, given->common,
        [given] { return runRate(given->common, given->track, given->stars); });
    rate.add_option("TRACK", given->track, TrackHelp)->required();
    rate.add_option("STARS", given->stars, "0 to 5; 0 takes the rating away")
        ->required()
        ->check(CLI::Range(0, 5));
}

void addPlayed(CommandSet& commands) {
    const auto given = std::make_shared<TrackArguments>();
    commands
        .addOnDevice({"played", "Count a track as played once more", PlayedExamples}, given->common,
                     [given] { return runPlayed(given->common, given->track); })
        .add_option("TRACK", given->track, TrackHelp)
        ->required();
}

void addEdit(CommandSet& commands) {
    const auto given = std::make_shared<TrackArguments>();
    CLI::App& edit = commands.addOnDevice(
        {"edit", "Change what a device says of a track", EditExamples}, given->common,
        [given] { return runEdit(given->common, given->track, given->assignments); });
    edit.add_option("TRACK", given->track, TrackHelp)->required();
    addAssignments(edit, given->assignments);
}

void addDelete(CommandSet& commands) {
    const auto given = std::make_shared<TrackArguments>();
    commands
        .addOnDevice({"delete", "Delete a track from a device", DeleteExamples}, given->common,
                     [given] { return runDelete(given->common, given->track); })
        .add_option("TRACK", given->track, TrackHelp)
        ->required();
}

using Action = PlaylistEdit::Action;

// Declares one action on a playlist; the playlist itself is its first argument.
CLI::App& addPlaylistAction(CommandSet& commands, CLI::App& command, Action action,
                            const char* name, const char* purpose,
                            const std::shared_ptr<PlaylistArguments>& given,
                            const char* playlistHelp = PlaylistHelp) {
    CLI::App& declared = commands.addAction(command, name, purpose, [given, action] {
        given->edit.action = action;
        return runPlaylist(given->common, given->edit);
    });
    declared.add_option("PLAYLIST", given->edit.playlist, playlistHelp)->required();
    return declared;
}

const CLI::Validator Positions(
    [](std::string& text) {
        const bool isNumber = text.find_first_not_of("0123456789") == std::string::npos;
        return isNumber && text.find_first_not_of('0') != std::string::npos
                   ? std::string()
                   : "\"" + text + "\" is no position; they count from 1";
    },
    "");

const CLI::Validator Rules(
    [](std::string& text) {
        return text.empty() ? std::string("say what the tracks have in common, or all")
                            : std::string();
    },
    "");

void addPlaylist(CommandSet& commands) {
    const auto given = std::make_shared<PlaylistArguments>();
    PlaylistEdit& edit = given->edit;
    CLI::App& playlist = commands.addOnDevice(
        {"playlist", "Make and change playlists on a device", PlaylistExamples}, given->common, {});
    CLI::App& create = addPlaylistAction(commands, playlist, Action::Create, "create",
                                         "Make a playlist", given, "The new playlist's name");
    CLI::Option* first = create.add_option("TRACK", edit.tracks, TracksHelp);
    CLI::Option* smart = create
                             .add_option("--smart", edit.rules,
                                         "A playlist that the device fills by these rules, instead")
                             ->type_name("RULES")
                             ->excludes(first)
                             ->check(Rules);
    create.add_option("--limit", edit.limit, "No more tracks than N, the first by this field")
        ->type_name("N [by [lowest|highest] FIELD]")
        ->expected(1, 4)
        ->needs(smart);
    create.footer(SmartRulesHelp);

    CLI::App& add = addPlaylistAction(commands, playlist, Action::Add, "add",
                                      "Put tracks into a playlist", given);
    add.add_option("TRACK", edit.tracks, TracksHelp)->required();
    add.add_option("--at", edit.position, "Where the first of them stands; without it: at the end")
        ->type_name("N")
        ->check(Positions);

    CLI::App& remove = addPlaylistAction(commands, playlist, Action::Remove, "remove",
                                         "Take tracks out of a playlist", given);
    CLI::Option* tracks =
        remove.add_option("TRACK", edit.tracks, "Ids or titles; each goes wherever it stands");
    CLI::Option* at = remove.add_option("--at", edit.position, "The one that stands there instead")
                          ->type_name("N")
                          ->check(Positions);
    tracks->excludes(at);

    CLI::App& move = addPlaylistAction(commands, playlist, Action::Move, "move",
                                       "Give a track of a playlist another place", given);
    move.add_option("FROM", edit.position, "Where it stands")->required()->check(Positions);
    move.add_option("TO", edit.newPosition, "Where it is to stand")->required()->check(Positions);

    addPlaylistAction(commands, playlist, Action::Rename, "rename", "Give a playlist another name",
                      given)
        .add_option("NAME", edit.name, "The new name")
        ->required();
    addPlaylistAction(commands, playlist, Action::Delete, "delete",
                      "Delete a playlist; its tracks stay", given);
}

}  // namespace

void addEditCommands(CommandSet& commands) {
    commands.beginGroup("What a device's owner changes");
    addRate(commands);
    addPlayed(commands);
    addEdit(commands);
    addDelete(commands);
    addPlaylist(commands);
}

}  // namespace host
