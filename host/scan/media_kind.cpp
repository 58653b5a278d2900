#include "host/scan/media_kind.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "host/scan/episode_name.h"
#include "host/scan/file_names.h"
#include "host/scan/folder_kinds.h"
#include "platform/media_library_properties.h"

namespace host {

namespace {

struct NamedType {
    std::string_view name;
    std::uint32_t type;
};

constexpr auto NamedTypes = std::to_array<NamedType>({
    {"music", KV3MediaTypeMusic},
    {"audiobook", KV3MediaTypeAudiobook},
    {"podcast", KV3MediaTypePodcast},
    {"video-podcast", KV3MediaTypeVideoPodcast},
    {"movie", KV3MediaTypeMovie},
    {"tv", KV3MediaTypeTVEpisode},
    {"music-video", KV3MediaTypeMusicVideo},
    {"home-video", KV3MediaTypeHomeVideo},
    {"tessel-u", KV3MediaTypeTesselU},
    {"tessel-u-video", KV3MediaTypeTesselUVideo},
});

// The type of a hinted kind in sound or film; nothing where the hint does not fit (the sound track
// of a film in "Movies" is music).
std::optional<std::uint32_t> typeOfHint(KindHint hint, bool hasVideo) {
    switch (hint) {
        case KindHint::Music:
            return hasVideo ? KV3MediaTypeMusicVideo : KV3MediaTypeMusic;
        case KindHint::Podcast:
            return hasVideo ? KV3MediaTypeVideoPodcast : KV3MediaTypePodcast;
        case KindHint::TesselU:
            return hasVideo ? KV3MediaTypeTesselUVideo : KV3MediaTypeTesselU;
        case KindHint::Audiobook:
            return hasVideo ? std::nullopt : std::optional(KV3MediaTypeAudiobook);
        case KindHint::Movie:
            return hasVideo ? std::optional(KV3MediaTypeMovie) : std::nullopt;
        case KindHint::TVEpisode:
            return hasVideo ? std::optional(KV3MediaTypeTVEpisode) : std::nullopt;
        case KindHint::MusicVideo:
            return hasVideo ? std::optional(KV3MediaTypeMusicVideo) : std::nullopt;
        case KindHint::HomeVideo:
            return hasVideo ? std::optional(KV3MediaTypeHomeVideo) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<KindHint> hintOfTaggedKind(TaggedKind kind) {
    switch (kind) {
        case TaggedKind::Music:
            return KindHint::Music;
        case TaggedKind::Audiobook:
            return KindHint::Audiobook;
        case TaggedKind::MusicVideo:
            return KindHint::MusicVideo;
        case TaggedKind::Movie:
            return KindHint::Movie;
        case TaggedKind::TVEpisode:
            return KindHint::TVEpisode;
        case TaggedKind::Podcast:
            return KindHint::Podcast;
        case TaggedKind::TesselU:
            return KindHint::TesselU;
        case TaggedKind::None:
            break;
    }
    return std::nullopt;
}

std::optional<KindHint> hintOfTags(const MediaFile& file) {
    const Tags& tags = file.tags;
    // A file that merely says "music" says nothing against its genre.
    const auto tagged = hintOfTaggedKind(tags.kind);
    if (tagged && tagged != KindHint::Music)
        return tagged;
    if (tags.podcast || !tags.podcastFeed.empty())
        return KindHint::Podcast;
    const std::string genre = caseFoldedName(tags.genre);
    if (genre == "podcast")
        return KindHint::Podcast;
    if (genre == "audiobook" || genre == "audiobooks" || genre == "audio book")
        return KindHint::Audiobook;
    if (extensionOfPath(file.stamp.path) == "m4b")
        return KindHint::Audiobook;
    if (file.hasVideo && !tags.show.empty() && tags.episode > 0)
        return KindHint::TVEpisode;
    return tagged;
}

// Names that cameras give: "IMG_0123", "VID_20240131", "DSC00042", "PXL_2024", "MVI_1", "GOPR1".
bool namedByCamera(std::string_view path) {
    constexpr auto Prefixes = std::to_array<std::string_view>(
        {"img_", "vid_", "vid-", "mvi_", "dsc", "pxl_", "gopr", "gh01", "mov_", "clip"});
    if (extensionOfPath(path) == "mov")
        return true;
    const std::string name = caseFoldedName(stemOfPath(path));
    return std::ranges::any_of(Prefixes, [&](std::string_view prefix) {
        return name.starts_with(prefix) && name.size() > prefix.size() &&
               std::isdigit(static_cast<unsigned char>(name[prefix.size()])) != 0;
    });
}

std::uint32_t typeWithoutRule(const MediaFile& file, const FolderHints& folders) {
    for (const auto& hint : {hintOfTags(file), folders.kind})
        if (hint)
            if (const auto type = typeOfHint(*hint, file.hasVideo))
                return *type;
    if (!file.hasVideo)
        return KV3MediaTypeMusic;
    if (episodeNameOf(file.stamp.path))
        return KV3MediaTypeTVEpisode;
    return namedByCamera(file.stamp.path) ? KV3MediaTypeHomeVideo : KV3MediaTypeMovie;
}

// What only the name tells of an episode.
void completeEpisode(const std::string& path, Tags& tags) {
    if (const auto name = episodeNameOf(path)) {
        if (tags.show.empty())
            tags.show = name->show;
        if (tags.season == 0 && tags.episode == 0) {
            tags.season = name->season;
            tags.episode = name->episode;
        }
        if (tags.title.empty())
            tags.title = name->title;
    }
    if (tags.show.empty())
        tags.show = showByFolder(path);
}

}  // namespace

void classifyMedia(MediaFile& file, const RuleFile& rules) {
    if (!file.readable())
        return;
    if (file.tagsInFile) {
        file.tags = std::move(*file.tagsInFile);
        file.tagsInFile.reset();
    }
    const Tags tagsInFile = file.tags;
    const RuleVerdict verdict = rules.verdictFor(file.stamp.path);
    for (const TagOverride* override : verdict.overrides) {
        if (override->text)
            file.tags.*override->text = override->textValue;
        else
            file.tags.*override->number = override->numberValue;
    }
    const FolderHints folders = hintsOfFolders(file.stamp.path);
    file.mediaType = verdict.mediaType ? *verdict.mediaType : typeWithoutRule(file, folders);
    file.isRental = verdict.isRental.value_or(file.tags.rental || folders.rental);
    if (file.mediaType == KV3MediaTypeTVEpisode)
        completeEpisode(file.stamp.path, file.tags);
    if (file.tags.title.empty())
        file.tags.title = displayText(stemOfPath(file.stamp.path));
    if (!(file.tags == tagsInFile))
        file.tagsInFile = tagsInFile;
}

std::string_view nameOfMediaType(std::uint32_t mediaType) {
    for (const NamedType& named : NamedTypes)
        if (named.type == mediaType)
            return named.name;
    return "";
}

std::optional<std::uint32_t> mediaTypeNamed(std::string_view name) {
    for (const NamedType& named : NamedTypes)
        if (named.name == name)
            return named.type;
    return std::nullopt;
}

std::string mediaTypeNames() {
    std::string names;
    for (const NamedType& named : NamedTypes) {
        if (!names.empty())
            names += ", ";
        names += named.name;
    }
    return names;
}

}  // namespace host
