#include <charconv>

#include "host/commands/command_set.h"
#include "host/commands/report_commands.h"

namespace host {

namespace {

constexpr char BackupPathsExamples[] = R"(
The paths are those on the device: "/" is the device's directory.

Example:
  orlith backup-paths --device ~/player
)";

constexpr char MetricsExamples[] = R"(
A bar for each kind of media, # what stays and - what may be removed at any time. Music includes the
covers and the library itself.

Examples:
  orlith metrics --device ~/player
  orlith metrics --device ~/player --json
)";

constexpr char AccountsExamples[] = R"(
Only accounts whose name the device knows: `orlith account` names them.

Example:
  orlith accounts --device ~/player
)";

constexpr char AccountExamples[] = R"(
Examples:
  orlith account add --device ~/player 4711 someone@example.org
  orlith account list --device ~/player
  orlith account remove --device ~/player 4711
)";

constexpr char DisabledTypesExamples[] = R"(
While its owner is signed in to the cloud library, music comes from there and not from a host.

Example:
  orlith disabled-types --device ~/player
)";

constexpr char ClearExamples[] = R"(
Nothing is deleted. The device forgets up to where it was synced, so the next sync compares everything.

Example:
  orlith clear --device ~/player
)";

constexpr char UpdateExamples[] = R"(
A metadata update is a host's: it goes through the device's import, which gives the device a new anchor.
What the owner of a device changes is `orlith edit`.

All values are set or none. A field without a value ("comment=") loses it. Fields are those of `orlith
edit`, and rating (0 to 100) and bookmark (milliseconds).

Examples:
  orlith update --device ~/player "A titel" title="A title"
  orlith update --device ~/player 123456789 rating=80 genre=Jazz
)";

struct AccountArguments {
    CommonOptions common;
    std::int64_t account = 0;
    std::string name;
};

struct UpdateArguments {
    CommonOptions common;
    std::string track;
    std::vector<std::string> assignments;
};

// A question without arguments of its own.
void addQuestion(CommandSet& commands, const CommandText& text,
                 ExitCode (*run)(const CommonOptions&)) {
    const auto common = std::make_shared<CommonOptions>();
    commands.addOnDevice(text, *common, [common, run] { return run(*common); });
}

// The parser by itself takes a number that is too large for the largest.
void addAccountNumber(CLI::App& command, std::int64_t& account) {
    command.add_option("ACCOUNT", account, "The store's number of it")
        ->required()
        ->check([](const std::string& text) {
            std::int64_t number = 0;
            const char* end = text.data() + text.size();
            const auto [rest, failure] = std::from_chars(text.data(), end, number);
            return failure == std::errc() && rest == end
                       ? std::string()
                       : "\"" + text + "\" is no number of an account";
        });
}

void addAccount(CommandSet& commands) {
    const auto given = std::make_shared<AccountArguments>();
    CLI::App& account = commands.addOnDevice(
        {"account", "Name the accounts that media were bought with", AccountExamples},
        given->common, {});
    CLI::App& add = commands.addAction(account, "add", "Name an account", [given] {
        return runAddAccount(given->common, given->account, given->name);
    });
    addAccountNumber(add, given->account);
    add.add_option("NAME", given->name, "What it is called")->required();
    addAccountNumber(
        commands.addAction(account, "remove", "Forget an account's name",
                           [given] { return runRemoveAccount(given->common, given->account); }),
        given->account);
    commands.addAction(account, "list", "Show the accounts that have a name",
                       [given] { return runListAccounts(given->common); });
}

void addUpdate(CommandSet& commands) {
    const auto given = std::make_shared<UpdateArguments>();
    CLI::App& update = commands.addOnDevice(
        {"update", "Send a device the metadata of one track", UpdateExamples, {ExitCode::Busy}},
        given->common,
        [given] { return runUpdate(given->common, given->track, given->assignments); });
    update.add_option("TRACK", given->track, TrackHelp)->required();
    addAssignments(update, given->assignments);
}

}  // namespace

void addReportCommands(CommandSet& commands) {
    commands.beginGroup("What a device holds");
    addQuestion(commands,
                {"metrics", "Show how much room each kind of media takes", MetricsExamples},
                runMetrics);
    addQuestion(commands,
                {"backup-paths", "List the files that belong in a backup", BackupPathsExamples},
                runBackupPaths);
    addQuestion(commands,
                {"accounts", "List the accounts that the device's media were bought with",
                 AccountsExamples},
                runAccountNames);
    addAccount(commands);
    addQuestion(commands,
                {"disabled-types", "List the kinds of media that a host must not send",
                 DisabledTypesExamples},
                runDisabledTypes);
    addUpdate(commands);
    addQuestion(commands,
                {"clear", "Let the next sync begin from nothing", ClearExamples, {ExitCode::Busy}},
                runClear);
}

}  // namespace host
