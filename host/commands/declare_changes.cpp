#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char ExportExamples[] = R"(
The parameters of the stream are put beside it, as FILE.json; `orlith import` needs both. Without
--output the stream goes to the standard output, when that is no terminal, and the parameters to the
error output.

Examples:
  orlith export --device ~/player --after 0 --sync-type 2 --output all.qorx    the whole library
  orlith export --device ~/player --after 4711 --output changes.qorx           what came later
)";

constexpr char ImportExamples[] = R"(
Takes in a stream whole or not at all; the device is made when it is missing. Files and covers do not
travel this way: `orlith assets` lists what is missing then.

Example:
  orlith import --device ~/spare changes.qorx          reads changes.qorx.json too
)";

constexpr char QorxExamples[] = R"(
A file that is cut or changed is refused with the place, and nothing of it is shown.

Examples:
  orlith qorx changes.qorx
  orlith qorx changes.qorx --json | grep '"type":"deletion"'
)";

const CLI::Validator isRevision(
    [](std::string& text) {
        return text.starts_with('-') ? "\"" + text + "\" is no revision; they count from 0"
                                     : std::string();
    },
    "");

struct ExportArguments {
    CommonOptions common;
    ExportOptions options;
};

struct FileArguments {
    CommonOptions common;
    std::string file;
};

void addExport(CommandSet& commands) {
    const auto given = std::make_shared<ExportArguments>();
    CLI::App& command = commands.addOnDevice(
        {"export",
         "Write what changed in a device's library into a file",
         ExportExamples,
         {ExitCode::Busy, ExitCode::NoSpace, ExitCode::Interrupted}},
        given->common, [given] { return runExport(given->common, given->options); });
    ExportOptions& options = given->options;
    command.add_option("--after", options.after, "Changes after this revision; 0 for all")
        ->required()
        ->type_name("REVISION")
        ->check(isRevision);
    command.add_option("--up-to", options.upTo, "Tracks that changed later stay out")
        ->type_name("REVISION")
        ->check(isRevision);
    command.add_option("--sync-type", options.syncType, "2: the whole library, without deletions")
        ->type_name("N");
    command
        .add_option("--output", options.output, "Where to write; a file of that name is replaced")
        ->type_name("FILE");
}

void addImport(CommandSet& commands) {
    const auto given = std::make_shared<FileArguments>();
    commands
        .addOnDevice({"import",
                      "Take changes from a file into a device's library",
                      ImportExamples,
                      {ExitCode::Busy, ExitCode::NoSpace, ExitCode::Interrupted}},
                     given->common, [given] { return runImport(given->common, given->file); })
        .add_option("FILE", given->file, "What `orlith export` wrote")
        ->required();
}

void addQorx(CommandSet& commands) {
    const auto given = std::make_shared<FileArguments>();
    commands
        .add({"qorx",
              "Show the records of a change stream or another QORX file",
              QorxExamples,
              {ExitCode::NotFound}},
             given->common.json, [given] { return runQorx(given->file, given->common.json); })
        .add_option("FILE", given->file, "The file; FILE.json beside it is used when it is there")
        ->required();
}

}  // namespace

void addChangeCommands(CommandSet& commands) {
    commands.beginGroup("Change streams");
    addExport(commands);
    addImport(commands);
    addQorx(commands);
}

}  // namespace host
