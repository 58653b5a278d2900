#include "tests/support/recording_daemon.h"

#include "tests/support/recording_streams.h"

namespace support {

void RecordingStoreInfo::setDSID(const platform::Value& accountID) {
    _calls.push_back({"setDSID", {accountID}});
}

void RecordingStoreInfo::setVantorID(const platform::Value& accountName) {
    _calls.push_back({"setVantorID", {accountName}});
}

void RecordingStoreInfo::setFlavor(const platform::Value& flavor) {
    _calls.push_back({"setFlavor", {flavor}});
}

void RecordingStoreInfo::setOrbisID(const platform::Value& itemID) {
    _calls.push_back({"setOrbisID", {itemID}});
}

void RecordingStoreInfo::setVeskaID(const platform::Value& cloudID) {
    _calls.push_back({"setVeskaID", {cloudID}});
}

void RecordingStoreInfo::setMatchStatus(const platform::Value& status) {
    _calls.push_back({"setMatchStatus", {status}});
}

void RecordingStoreInfo::setRedownloadStatus(const platform::Value& status) {
    _calls.push_back({"setRedownloadStatus", {status}});
}

void RecordingStoreInfo::setPodcastEpisodeGUID(const platform::Value& guid) {
    _calls.push_back({"setPodcastEpisodeGUID", {guid}});
}

void RecordingAsset::setPath(const std::string& path) {
    _recorder.record("ORAsset.setPath", {path});
    _path = path;
}

void RecordingAsset::setStoreInfo(std::shared_ptr<ORStoreInfo> storeInfo) {
    _storeInfo = std::dynamic_pointer_cast<RecordingStoreInfo>(storeInfo);
}

void RecordingStagehold::processCompletedAsset(ORAsset& asset) {
    _recorder.record("ORStagehold.processCompletedAsset", {asset.description()});
}

std::optional<std::string> RecordingStagehold::artworkPathForDataclass(
    const std::string& dataclass, const std::optional<std::string>& artworkIdentifier) {
    const bool isFault = _recorder.fails("ORStagehold.artworkPath", {dataclass, artworkIdentifier});
    if (!artworkIdentifier)
        return isFault ? std::nullopt : artworkDirectory;
    const auto found = artworkPaths.find(*artworkIdentifier);
    return isFault || found == artworkPaths.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> RecordingStagehold::kenningPathForDataclass(
    const std::string& dataclass, const std::string& kenningIdentifier) {
    const bool isFault = _recorder.fails("ORStagehold.kenningPath", {dataclass, kenningIdentifier});
    const auto found = kenningPaths.find(kenningIdentifier);
    return isFault || found == kenningPaths.end() ? std::nullopt : std::optional(found->second);
}

std::shared_ptr<ORAsset> RecordingDaemon::makeDownloadAsset(std::string_view identifier,
                                                            std::string_view dataclass,
                                                            std::string_view prettyName) {
    auto asset = std::make_shared<RecordingAsset>(_recorder, std::string(identifier), true);
    asset->dataclass = dataclass;
    asset->prettyName = prettyName;
    return asset;
}

std::shared_ptr<ORAsset> RecordingDaemon::makeUploadAsset(
    std::string_view identifier, std::string_view dataclass, std::string_view sourcePath,
    std::optional<std::string_view> prettyName) {
    auto asset = std::make_shared<RecordingAsset>(_recorder, std::string(identifier), false);
    asset->dataclass = dataclass;
    asset->prettyName = prettyName;
    asset->sourcePath = sourcePath;
    return asset;
}

std::shared_ptr<ORAsset> RecordingDaemon::makeAsset(std::string_view identifier,
                                                    std::string_view dataclass,
                                                    std::string_view prettyName) {
    auto asset = std::make_shared<RecordingAsset>(_recorder, std::string(identifier), false);
    asset->dataclass = dataclass;
    asset->prettyName = prettyName;
    return asset;
}

std::shared_ptr<ORStoreInfo> RecordingDaemon::makeStoreInfo() {
    return std::make_shared<RecordingStoreInfo>();
}

std::shared_ptr<ORStreamWriter> RecordingDaemon::makeStreamWriter(
    std::shared_ptr<platform::OutputStream> outputStream,
    std::shared_ptr<platform::WorkQueue> queue) {
    _recorder.record(
        "ORStreamWriter.initWithOutputStream",
        {outputStream->description(), queue ? platform::Value(queue->label()) : platform::Value()});
    return std::make_shared<RecordingStreamWriter>(_recorder, _scheduler, std::move(outputStream));
}

std::shared_ptr<ORStreamReader> RecordingDaemon::makeStreamReader(
    std::shared_ptr<platform::InputStream> inputStream,
    std::shared_ptr<platform::WorkQueue> queue) {
    _recorder.record(
        "ORStreamReader.initWithInputStream",
        {inputStream->description(), queue ? platform::Value(queue->label()) : platform::Value()});
    return std::make_shared<RecordingStreamReader>(_recorder, _scheduler, std::move(inputStream));
}

std::uint64_t RecordingDaemon::physicalSizeForLogicalSize(std::uint64_t logicalSize) {
    _recorder.record("ORGetPhysicalSizeForLogicalSize", {logicalSize});
    return (logicalSize + blockSize - 1) / blockSize * blockSize;
}

std::uint64_t RecordingDaemon::diskUsageForPath(const std::string& path) {
    _recorder.record("ORGetDiskUsageForPath", {path});
    const auto found = diskUsages.find(path);
    return found == diskUsages.end() ? 0 : found->second;
}

void RecordingDelegate::syncClientHasChangesWithPriority(ORSyncClient& syncClient,
                                                         std::int64_t priority) {
    const std::lock_guard lock(_mutex);
    _priorities.push_back(priority);
    _lastClient = &syncClient;
}

std::vector<std::int64_t> RecordingDelegate::priorities() const {
    const std::lock_guard lock(_mutex);
    return _priorities;
}

ORSyncClient* RecordingDelegate::lastClient() const {
    const std::lock_guard lock(_mutex);
    return _lastClient;
}

}  // namespace support
