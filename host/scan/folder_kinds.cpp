#include "host/scan/folder_kinds.h"

#include <array>
#include <string>

#include "host/scan/file_names.h"

namespace host {

namespace {

struct KnownFolder {
    std::string_view name;  // folded
    KindHint kind;
};

constexpr auto KnownFolders = std::to_array<KnownFolder>({
    {"music", KindHint::Music},
    {"audiobook", KindHint::Audiobook},
    {"audiobooks", KindHint::Audiobook},
    {"audio books", KindHint::Audiobook},
    {"podcast", KindHint::Podcast},
    {"podcasts", KindHint::Podcast},
    {"video podcasts", KindHint::Podcast},
    {"film", KindHint::Movie},
    {"films", KindHint::Movie},
    {"movie", KindHint::Movie},
    {"movies", KindHint::Movie},
    {"tv", KindHint::TVEpisode},
    {"tv shows", KindHint::TVEpisode},
    {"tv series", KindHint::TVEpisode},
    {"series", KindHint::TVEpisode},
    {"music video", KindHint::MusicVideo},
    {"music videos", KindHint::MusicVideo},
    {"home movies", KindHint::HomeVideo},
    {"home video", KindHint::HomeVideo},
    {"home videos", KindHint::HomeVideo},
    {"tesselu", KindHint::TesselU},
    {"tessel u", KindHint::TesselU},
});

std::optional<KindHint> hintOfFolder(std::string_view folded) {
    for (const KnownFolder& folder : KnownFolders)
        if (folder.name == folded)
            return folder.kind;
    return std::nullopt;
}

}  // namespace

FolderHints hintsOfFolders(std::string_view path) {
    FolderHints hints;
    for (std::string_view folder = folderOfPath(path); !folder.empty();
         folder = folderOfPath(folder)) {
        const std::string name = caseFoldedName(fileNameOfPath(folder));
        if (!hints.kind)
            hints.kind = hintOfFolder(name);
        if (name == "rentals")
            hints.rental = true;
    }
    return hints;
}

bool isEpisodeFolder(std::string_view name) {
    return hintOfFolder(caseFoldedName(name)) == KindHint::TVEpisode;
}

}  // namespace host
