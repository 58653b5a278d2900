#include "device/downloads/download.h"

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

}  // namespace downloads
