#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_transfer/video_snapshots.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view trackOperation = "_processCompletedTrackAsset:";
constexpr std::string_view artworkOperation = "_processCompletedArtworkAsset:";

constexpr std::int64_t musicFolders = 50;
// Where the artwork comes from: another device of the owner's.
constexpr std::int64_t artworkSourceDevice = 1;

platform::FileSystem& fileSystem() {
    return platform::Platform::current().operatingSystem().fileSystem();
}

// The remainder keeps the sign: a negative sync id has folders of its own, such as F-7.
std::string folderForSyncID(std::int64_t syncID) {
    char folder[40];
    std::snprintf(folder, sizeof folder, "Tessel_Control/Music/F%02d",
                  static_cast<int>(syncID % musicFolders));
    return folder;
}

// Where a delivered track file belongs. Absent when it has no name: that would be the folder
// itself, or one above it.
std::optional<std::string> destinationInFolder(const std::string& folder, const ORAsset& asset) {
    const std::string name = KVLastPathComponent(asset.path().value_or(std::string()));
    if (name.empty() || name == "." || name == "..")
        return std::nullopt;
    return KVPathByAppendingComponent(folder, name);
}

platform::OptionalError moveDeliveredFile(const ORAsset& asset,
                                          const std::optional<std::string>& destination) {
    const std::optional<std::string> path = asset.path();
    if (!path || !destination)
        return platform::Error::posix(EINVAL);
    return fileSystem().moveItem(*path, *destination);
}

void makeArtworkDirectory() {
    const std::optional<std::string> directory =
        ORStagehold::sharedInstance().artworkPathForDataclass(std::string(KVDataClassMedia),
                                                              std::nullopt);
    if (directory && !fileSystem().fileExists(*directory))
        fileSystem().createDirectory(*directory);
}

}  // namespace

void KVSyncClient::assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>& asset,
                                                 const platform::OptionalError& error) {
    if (!error) {
        const std::uint64_t parts = KVAssetParts(*asset);
        switch (parts) {
            case KVAssetPartFile:
                _processCompletedTrackAsset(*asset);
                break;
            case KVAssetPartArtwork:
                _processCompletedArtworkAsset(*asset);
                break;
            case KVAssetPartKenning:
                _processCompletedKenningAsset(*asset);
                break;
            default:
                throw std::logic_error(platform::formatMessage(
                    "unexpected asset type %lu", std::array{platform::LogArgument(parts)}));
        }
    }
    _library->notifyDisplayValuesPropertyDidChange();
}

void KVSyncClient::_processCompletedTrackAsset(ORAsset& asset) {
    const std::int64_t syncID = KVPersistentIDFromString(asset.identifier());
    const std::string folder =
        KVPathByAppendingComponent(KVMediaDirectory, folderForSyncID(syncID));
    const std::optional<std::string> destination = destinationInFolder(folder, asset);
    if (const auto error = fileSystem().createDirectory(folder)) {
        KVLog(Warning, trackOperation, "failed to create asset dir %@. error=%@", folder, error);
        return;
    }
    if (destination)
        fileSystem().removeItem(*destination);
    if (const auto error = moveDeliveredFile(asset, destination)) {
        KVLog(Warning, trackOperation, "failed to move asset %@ to %@. error=%@", asset,
              destination, error);
        return;
    }
    _library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        const std::shared_ptr<KV3Track> track = KVTrackWithSyncID(_library, syncID);
        if (!track->existsInLibrary()) {
            KVLog(Error, trackOperation, "Could not find track in database for asset: %@", asset);
            return false;
        }
        unlinkFromCloud(*track);
        KVLog(Info, trackOperation, "Setting location data for track: %lld", syncID);
        track->populateLocationPropertiesWithPath(*destination);
        track->setValue(false, KV3TrackPropertyNeedsRestore);
        return true;
    });
}

void KVSyncClient::_processCompletedArtworkAsset(ORAsset& asset) {
    makeArtworkDirectory();
    const std::shared_ptr<KV3Track> track =
        KVTrackWithSyncID(_library, KVPersistentIDFromString(asset.identifier()));
    const platform::Value chapterData = track->valueForProperty(KV3TrackPropertyChapterData);
    const auto mediaType = static_cast<std::uint32_t>(
        track->valueForProperty(KV3TrackPropertyMediaType).unsignedValue());
    if (processChapterArtwork(chapterData, mediaType))
        processCoverArtwork(asset, *track, mediaType);
    KVCreateVideoSnapshotIfNeeded(asset, *track);
}

bool KVSyncClient::processChapterArtwork(const platform::Value& chapterData,
                                         std::uint32_t mediaType) {
    bool succeeded = true;
    if (const platform::Data* data = chapterData.data()) {
        KVTSChapterTOC::enumerateArtworkCacheIDsInFlattenedChapterData(
            *data, [&](const std::string& cacheID, bool& stop) {
                if (cacheID.empty())
                    return;
                succeeded = _processArtworkIdentifier(cacheID, cacheID, KVArtworkTypeChapter,
                                                      mediaType, artworkSourceDevice);
                stop = !succeeded;
            });
    }
    return succeeded;
}

void KVSyncClient::processCoverArtwork(ORAsset& asset, KV3Track& track, std::uint32_t mediaType) {
    const platform::Value token = track.valueForProperty(KV3TrackPropertyCloudArtworkToken);
    if (!token.string()) {
        KVLog(Warning, artworkOperation, "Got artwork for asset with no artwork token: %@", asset);
        return;
    }
    const std::string identifier = asset.identifier();
    const std::optional<std::string> destination =
        ORStagehold::sharedInstance().artworkPathForDataclass(std::string(KVDataClassMedia),
                                                              identifier);
    if (const auto error = moveDeliveredFile(asset, destination))
        KVLog(Warning, artworkOperation, "failed to move asset %@ to %@. error=%@", asset,
              destination, error);
    else
        _processArtworkIdentifier(identifier, *token.string(), KVArtworkTypeTrack, mediaType,
                                  artworkSourceDevice);
}

void KVSyncClient::_processCompletedKenningAsset(ORAsset&) {}

void KVSyncClient::assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>&, double) {}

void KVSyncClient::assetSyncDidComplete() {
    assetTransferEndedWithSuccess(true);
}
