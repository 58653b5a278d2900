#include "device/orlith/mirror/download_progress.h"

namespace orlith {

void DownloadProgress::downloadManagerDownloadStatesDidChange(
    VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>& downloads) {
    for (const std::shared_ptr<VDDownload>& download : downloads) {
        const std::string item =
            download->valueForProperty(VDDownloadPropertyLibraryItemIdentifier).description();
        const std::scoped_lock lock(_mutex);
        if (const auto watched = _watched.find(item); watched != _watched.end())
            watched->second = Clock::now();
    }
}

std::optional<DownloadProgress::Clock::time_point> DownloadProgress::lastMove(
    const std::string& libraryItem) const {
    const std::scoped_lock lock(_mutex);
    const auto watched = _watched.find(libraryItem);
    return watched == _watched.end() ? std::nullopt : watched->second;
}

void DownloadProgress::watch(const std::string& libraryItem) {
    const std::scoped_lock lock(_mutex);
    _watched.emplace(libraryItem, std::nullopt);
}

void DownloadProgress::forget(const std::string& libraryItem) {
    const std::scoped_lock lock(_mutex);
    _watched.erase(libraryItem);
}

}  // namespace orlith
