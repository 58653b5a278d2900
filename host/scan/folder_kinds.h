// Purpose: folders whose name says what kind of media lies in them ("Podcasts", "TV Shows").
// Thread: any.
// Failure: none.
#pragma once

#include <optional>
#include <string_view>

namespace host {

enum class KindHint {
    Music,
    Audiobook,
    Podcast,
    Movie,
    TVEpisode,
    MusicVideo,
    HomeVideo,
    TesselU,
};

struct FolderHints {
    std::optional<KindHint> kind;  // of the innermost folder that names one
    bool rental = false;           // some folder is "Rentals"
};

FolderHints hintsOfFolders(std::string_view path);
bool isEpisodeFolder(std::string_view name);

}  // namespace host
