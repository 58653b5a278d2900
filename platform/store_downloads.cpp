#include "platform/store_downloads.h"

#include "platform/platform.h"
#include "platform/sync_daemon.h"

using platform::Platform;

std::shared_ptr<VDDownloadManagerOptions> VDDownloadManagerOptions::make() {
    return Platform::current().storeDownloads().makeManagerOptions();
}

std::shared_ptr<VDDownloadManager> VDDownloadManager::initWithManagerOptions(
    std::shared_ptr<VDDownloadManagerOptions> options) {
    return Platform::current().storeDownloads().makeManager(std::move(options));
}

std::shared_ptr<VDDownloadFileManifest> VDDownloadFileManifest::make() {
    return initWithManifestType(0);
}

std::shared_ptr<VDDownloadFileManifest> VDDownloadFileManifest::initWithManifestType(
    std::int64_t manifestType) {
    return Platform::current().storeDownloads().makeFileManifest(manifestType);
}

void VDDownloadManagerObserver::downloadManagerDownloadStatesDidChange(
    VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>&) {
    throw ORUnimplementedOperation("downloadManager:downloadStatesDidChange:");
}

void VDDownloadManagerObserver::downloadManagerActiveDownloadsDidChange(VDDownloadManager&) {
    throw ORUnimplementedOperation("downloadManagerActiveDownloadsDidChange:");
}

void VDDownloadManagerObserver::downloadManagerDownloadsDidChange(VDDownloadManager&) {
    throw ORUnimplementedOperation("downloadManagerDownloadsDidChange:");
}
