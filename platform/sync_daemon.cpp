#include "platform/sync_daemon.h"

#include "platform/platform.h"

using platform::Platform;

std::shared_ptr<ORStoreInfo> ORStoreInfo::make() {
    return Platform::current().syncDaemon().makeStoreInfo();
}

std::shared_ptr<ORAsset> ORAsset::downloadAssetWithIdentifier(const std::string& identifier,
                                                              const std::string& dataclass,
                                                              const std::string& prettyName) {
    return Platform::current().syncDaemon().makeDownloadAsset(identifier, dataclass, prettyName);
}

std::shared_ptr<ORAsset> ORAsset::uploadAssetWithIdentifier(
    const std::string& identifier, const std::string& dataclass, const std::string& sourcePath,
    const std::optional<std::string>& prettyName) {
    return Platform::current().syncDaemon().makeUploadAsset(identifier, dataclass, sourcePath,
                                                            prettyName);
}

std::shared_ptr<ORAsset> ORAsset::initWithIdentifier(const std::string& identifier,
                                                     const std::string& dataclass,
                                                     const std::string& prettyName) {
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

std::vector<std::shared_ptr<ORAsset>> ORClient::outstandingAssetTransfersWithDownloadManager(
    VDDownloadManager*) {
    throw ORUnimplementedOperation("outstandingAssetTransfersWithDownloadManager:");
}

void ORClient::assetTransferSucceeded(const std::shared_ptr<ORAsset>&, bool,
                                      const platform::OptionalError&) {
    throw ORUnimplementedOperation("assetTransfer:succeeded:withError:");
}

void ORClient::assetInstallFailed(const std::shared_ptr<ORAsset>&, const platform::OptionalError&) {
    throw ORUnimplementedOperation("assetInstallFailed:withError:");
}

void ORClient::assetTransferEndedWithSuccess(bool) {
    throw ORUnimplementedOperation("assetTransferEndedWithSuccess:");
}

void ORClient::_processKenningConfigPlist(const platform::Value&) {
    throw ORUnimplementedOperation("_processKenningConfigPlist:");
}
