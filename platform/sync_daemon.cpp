#include "platform/sync_daemon.h"

#include "platform/platform.h"

using platform::Platform;

std::shared_ptr<ORStoreInfo> ORStoreInfo::make() {
    return Platform::current().syncDaemon().makeStoreInfo();
}

std::shared_ptr<ORAsset> ORAsset::downloadAssetWithIdentifier(std::string_view identifier,
                                                              std::string_view dataclass,
                                                              std::string_view prettyName) {
    return Platform::current().syncDaemon().makeDownloadAsset(identifier, dataclass, prettyName);
}

std::shared_ptr<ORAsset> ORAsset::uploadAssetWithIdentifier(
    std::string_view identifier, std::string_view dataclass, std::string_view sourcePath,
    std::optional<std::string_view> prettyName) {
    return Platform::current().syncDaemon().makeUploadAsset(identifier, dataclass, sourcePath,
                                                            prettyName);
}

std::shared_ptr<ORAsset> ORAsset::initWithIdentifier(std::string_view identifier,
                                                     std::string_view dataclass,
                                                     std::string_view prettyName) {
    return Platform::current().syncDaemon().makeAsset(identifier, dataclass, prettyName);
}

std::shared_ptr<ORStreamWriter> ORStreamWriter::initWithOutputStream(
    std::shared_ptr<platform::OutputStream> outputStream,
    std::shared_ptr<platform::WorkQueue> queue) {
    return Platform::current().syncDaemon().makeStreamWriter(std::move(outputStream),
                                                             std::move(queue));
}

std::shared_ptr<ORStreamReader> ORStreamReader::initWithInputStream(
    std::shared_ptr<platform::InputStream> inputStream,
    std::shared_ptr<platform::WorkQueue> queue) {
    return Platform::current().syncDaemon().makeStreamReader(std::move(inputStream),
                                                             std::move(queue));
}

ORStagehold& ORStagehold::sharedInstance() {
    return Platform::current().syncDaemon().stagehold();
}

std::uint64_t ORGetPhysicalSizeForLogicalSize(std::uint64_t logicalSize) {
    return Platform::current().syncDaemon().physicalSizeForLogicalSize(logicalSize);
}

std::uint64_t ORGetDiskUsageForPath(const std::string& path) {
    return Platform::current().syncDaemon().diskUsageForPath(path);
}

std::string ORClient::currentSyncAnchor() {
    throw ORUnimplementedOperation("currentSyncAnchor");
}

bool ORClient::prepareForSyncWithHostAnchor(const std::string&, const Progress&, std::uint32_t,
                                            const std::string&, platform::OptionalError*) {
    throw ORUnimplementedOperation(
        "prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:");
}

bool ORClient::reconcileSync(std::uint32_t, const std::string&, const Progress&,
                             platform::OptionalError*) {
    throw ORUnimplementedOperation("reconcileSync:withNewAnchor:progressCallback:error:");
}

void ORClient::cancelSyncOperations() {
    throw ORUnimplementedOperation("cancelSyncOperations");
}

bool ORClient::reconcileRestore(platform::OptionalError*) {
    throw ORUnimplementedOperation("reconcileRestoreWithError:");
}

std::vector<std::shared_ptr<ORAsset>> ORClient::outstandingAssetTransfersWithDownloadManager(
    VDDownloadManager*) {
    throw ORUnimplementedOperation("outstandingAssetTransfersWithDownloadManager:");
}

void ORClient::assetTransferSucceeded(const std::shared_ptr<ORAsset>&, bool,
                                      const platform::OptionalError&) {
    throw ORUnimplementedOperation("assetTransfer:succeeded:withError:");
}

void ORClient::metadataUpdate(const platform::Dictionary&, const std::shared_ptr<ORAsset>&,
                              const std::string&) {
    throw ORUnimplementedOperation("metadataUpdate:forAsset:withNewAnchor:");
}

void ORClient::assetInstallFailed(const std::shared_ptr<ORAsset>&, const platform::OptionalError&) {
    throw ORUnimplementedOperation("assetInstallFailed:withError:");
}

void ORClient::assetTransferEndedWithSuccess(bool) {
    throw ORUnimplementedOperation("assetTransferEndedWithSuccess:");
}

void ORClient::pathsToBackup(std::vector<std::string>*, std::vector<std::string>*) {
    throw ORUnimplementedOperation("pathsToBackup:pathsNotToBackup:");
}

std::set<std::string> ORClient::vantorIDsForAssets() {
    throw ORUnimplementedOperation("vantorIDsForAssets");
}

void ORClient::clearSyncData() {
    throw ORUnimplementedOperation("clearSyncData");
}

std::optional<std::set<std::string>> ORClient::disabledAssetTypes() {
    throw ORUnimplementedOperation("disabledAssetTypes");
}

platform::Dictionary ORClient::installedAssetMetrics() {
    throw ORUnimplementedOperation("installedAssetMetrics");
}

void ORClient::_processKenningConfigPlist(const platform::Value&) {
    throw ORUnimplementedOperation("_processKenningConfigPlist:");
}
