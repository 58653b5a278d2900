#include "host/commands/command_set.h"

namespace host {

namespace {

constexpr char DownloadExamples[] = R"(
The device fetches the file by itself; `orlith downloads` shows how far it is.

Examples:
  orlith download --device ~/player https://example.org/talk.mp3 --title "A talk"
  orlith download --device ~/player https://example.org/song.m4a --track "A title" --temporary
)";

constexpr char DownloadsExamples[] = R"(
Examples:
  orlith downloads --device ~/player
  orlith downloads --device ~/player --cancel 12
)";

constexpr char CloudExamples[] = R"(
`orlith status` shows whether the owner is signed in.

Examples:
  orlith cloud sign-in --device ~/player --with-kenning
  orlith cloud sign-out --device ~/player
)";

struct DownloadArguments {
    CommonOptions common;
    DownloadOptions options;
};

struct DownloadsArguments {
    CommonOptions common;
    std::optional<std::int64_t> cancel;
};

struct CloudArguments {
    CommonOptions common;
    bool withKenning = false;
};

void addDownload(CommandSet& commands) {
    const auto given = std::make_shared<DownloadArguments>();
    CLI::App& download = commands.addOnDevice(
        {"download", "Let a device fetch a media file from a store", DownloadExamples},
        given->common, [given] { return runDownload(given->common, given->options); });
    DownloadOptions& options = given->options;
    download.add_option("URL", options.url, "Where the file is")->required();
    CLI::Option* title = download.add_option("--title", options.title, "The new track's title");
    download.add_option("--track", options.track, "A track that lacks its file, by id or title")
        ->excludes(title);
    download.add_option("--item", options.item, "The store's number of it")->type_name("ID");
    download.add_option("--account", options.account, "The store's number of the customer")
        ->type_name("ID");
    download.add_flag("--temporary", options.temporary,
                      "The device may delete the file again when it needs the space");
}

void addDownloads(CommandSet& commands) {
    const auto given = std::make_shared<DownloadsArguments>();
    commands
        .addOnDevice({"downloads", "Show what a device is fetching", DownloadsExamples},
                     given->common,
                     [given] {
                         return given->cancel ? runCancelDownload(given->common, *given->cancel)
                                              : runListDownloads(given->common);
                     })
        .add_option("--cancel", given->cancel, "Stop this one instead")
        ->type_name("N");
}

void addCloud(CommandSet& commands) {
    const auto given = std::make_shared<CloudArguments>();
    CLI::App& cloud = commands.addOnDevice(
        {"cloud", "Sign a device's owner in to the cloud library", CloudExamples}, given->common,
        {});
    commands
        .addAction(cloud, "sign-in", "The owner signs in",
                   [given] { return runCloudSignIn(given->common, given->withKenning); })
        .add_flag("--with-kenning", given->withKenning,
                  "The cloud library has recommendation data");
    commands.addAction(cloud, "sign-out", "The owner signs out",
                       [given] { return runCloudSignOut(given->common); });
}

}  // namespace

void addFetchCommands(CommandSet& commands) {
    commands.beginGroup("Downloads and the cloud");
    addDownload(commands);
    addDownloads(commands);
    addCloud(commands);
}

}  // namespace host
