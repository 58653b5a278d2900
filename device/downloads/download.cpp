#include "device/downloads/download.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace downloads {
namespace {

constexpr std::array Kinds = {VDDownloadKindAudiobook,
                              VDDownloadKindMovie,
                              VDDownloadKindMusic,
                              VDDownloadKindMusicVideo,
                              VDDownloadKindTelevisionEpisode,
                              VDDownloadKindVideoPodcast,
                              VDDownloadKindPodcast};
constexpr std::array Phases = {VDDownloadPhaseWaiting, VDDownloadPhaseDownloading,
                               VDDownloadPhasePaused, VDDownloadPhaseInstalling,
                               VDDownloadPhaseFailed};

}  // namespace

bool isKnownKind(std::string_view kind) {
    return std::find(Kinds.begin(), Kinds.end(), kind) != Kinds.end();
}

bool isKnownPhase(std::string_view phase) {
    return std::find(Phases.begin(), Phases.end(), phase) != Phases.end();
}

bool isActivePhase(std::string_view phase) {
    return phase == VDDownloadPhaseDownloading || phase == VDDownloadPhaseInstalling;
}

std::string DownloadRecord::text(std::string_view property) const {
    const auto found = properties.find(property);
    const std::string* value = found == properties.end() ? nullptr : found->second.string();
    return value ? *value : std::string();
}

std::int64_t DownloadRecord::number(std::string_view property) const {
    const auto found = properties.find(property);
    return found == properties.end() ? 0 : found->second.int64Value();
}

platform::Value Download::valueForProperty(std::string_view property) const {
    if (property == VDDownloadPropertyLibraryItemIdentifier)
        return _record.libraryItemIdentifier;
    if (property == VDDownloadPropertyDownloadPhase)
        return _record.phase;
    if (property == PropertyKind)
        return _record.kind;
    const auto found = _record.properties.find(property);
    return found == _record.properties.end() ? platform::Value() : found->second;
}

std::string Download::description() const {
    return fmt::format("<download {}: {}, library item {}, {}>", _record.persistentIdentifier,
                       _record.kind, _record.libraryItemIdentifier, _record.phase);
}

}  // namespace downloads
