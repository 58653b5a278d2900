#include "platform/store_downloads.h"

#include "platform/platform.h"

using platform::Platform;

std::shared_ptr<VDDownloadManagerOptions> VDDownloadManagerOptions::make() {
    return Platform::current().storeDownloads().makeManagerOptions();
}

std::shared_ptr<VDDownloadManager> VDDownloadManager::initWithManagerOptions(
    std::shared_ptr<VDDownloadManagerOptions> options) {
    return Platform::current().storeDownloads().makeManager(std::move(options));
}
