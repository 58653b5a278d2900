#include <sstream>

#include "host/commands/command_set.h"
#include "host/scan/media_kind.h"

namespace host {

namespace {

constexpr char MirrorExamples[] = R"(
Tracks, playlists, ratings, counts, covers and files travel from the first device to the other; only
what changed since the last time moves. Mirror back as well, and both have everything. The first run
between two devices deletes nothing; later ones delete what was deleted on the first device, and
nothing else.

Examples:
  orlith mirror --from ~/player --to ~/spare
  orlith mirror --from ~/player --to ~/spare --kinds music,podcast
  orlith mirror --from ~/player --to ~/spare --follow      until Ctrl-C
)";

constexpr char AssetsExamples[] = R"(
Example:
  orlith assets --device ~/spare       files and covers that the next mirror run will ask for
)";

constexpr char RevisionExamples[] = R"(
A revision counts the changes of one library, which has a name of its own; with another name revisions
start anew. `orlith export --after` takes a revision.

Example:
  orlith revision --device ~/player
)";

constexpr char ResetExamples[] = R"(
Tracks and playlists that only another device gave leave this one, with their files. No other
device loses anything, and the next mirror run brings them again.

Example:
  orlith reset-changes --device ~/spare
)";

// The kinds' names, a few a line, below the option's first words.
std::string kindLines() {
    constexpr std::size_t Longest = 60;
    std::string text;
    std::string line = "There are";
    std::istringstream names(mediaTypeNames());
    for (std::string name; names >> name;) {
        if (line.size() + name.size() >= Longest) {
            text += line + "\n";
            line.clear();
        }
        line += line.empty() ? name : " " + name;
    }
    return text + line;
}

// Names with commas between them, as bits.
CLI::Option* addKinds(CLI::App& command, std::uint32_t& mediaTypes) {
    const auto understand = [&mediaTypes](const std::vector<std::string>& names) {
        for (const std::string& name : names)
            if (const auto type = mediaTypeNamed(name))
                mediaTypes |= *type;
    };
    const CLI::Validator known(
        [](std::string& name) {
            return mediaTypeNamed(name)
                       ? std::string()
                       : "\"" + name + "\" is no kind; there are " + mediaTypeNames();
        },
        "");
    return command
        .add_option_function<std::vector<std::string>>(
            "--kinds", understand,
            "Only these kinds, with commas between; the others come when a later run asks for "
            "them.\n" +
                kindLines())
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("KIND,...")
        ->check(known);
}

void addMirror(CommandSet& commands) {
    const auto given = std::make_shared<MirrorOptions>();
    CLI::App& mirror = commands.add({"mirror",
                                     "Bring a device up to date from another one",
                                     MirrorExamples,
                                     {ExitCode::PartlyDone, ExitCode::NotFound, ExitCode::Busy,
                                      ExitCode::NoSpace, ExitCode::Interrupted}},
                                    given->json, [given] { return runMirror(*given); });
    mirror.add_option("--from", given->from, "The device to take from")
        ->required()
        ->type_name("DIR");
    mirror.add_option("--to", given->to, "The device to bring up to date; made when it is missing")
        ->required()
        ->type_name("DIR");
    addKinds(mirror, given->mediaTypes);
    mirror.add_flag("--follow", given->follow,
                    "Go on with each change, until Ctrl-C (exit code 130)");
}

}  // namespace

void addMirrorCommands(CommandSet& commands) {
    commands.beginGroup("Devices among each other");
    addMirror(commands);
    const auto given = std::make_shared<CommonOptions>();
    commands.addOnDevice({"assets", "Show which files and covers a device lacks", AssetsExamples},
                         *given, [given] { return runAssets(*given); });
    commands.addOnDevice(
        {"revision", "Show how far a device's library has changed", RevisionExamples}, *given,
        [given] { return runRevision(*given); });
    commands.addOnDevice({"reset-changes",
                          "Take away what other devices have brought in",
                          ResetExamples,
                          {ExitCode::Busy}},
                         *given, [given] { return runResetChanges(*given); });
}

}  // namespace host
