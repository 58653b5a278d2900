#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_transfer/transfer_errors.h"
#include "SyncBundle/log.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view transferOperation = "assetTransfer:succeeded:withError:";

constexpr std::string_view autoCreatedSmartPlaylistsDeletedProperty =
    "autoCreatedSmartPlaylistsDeleted";
constexpr std::string_view createdBuiltInSmartPlaylistsProperty = "createdBuiltInSmartPlaylists";

// The track of a failed asset; null when the library has none.
std::shared_ptr<KV3Track> trackForFailedAsset(const ORAsset& asset,
                                              const std::shared_ptr<KV3Korvane>& library) {
    const std::int64_t id = KVPersistentIDFromString(asset.identifier());
    auto track = KVTrackWithSyncID(library, id);
    if (track->existsInLibrary())
        return track;
    if (!asset.isRestore())
        return nullptr;
    track = KV3Track::newWithPersistentID(id, library);
    return track->existsInLibrary() ? track : nullptr;
}

}  // namespace

void KVSyncClient::assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                          const platform::OptionalError& error) {
    const bool isCounted = (KVAssetParts(*asset) & KVAssetPartFile) && asset->isDownload() &&
                           asset->assetType() == KVAssetTypeMusic;
    if (isCounted)
        _postCurrentAssetNumber(++_currentAssetNumber);
    if (!succeeded)
        transferFailed(*asset, error);
    else if (asset->isDownload())
        downloadSucceeded(*asset);
    else
        uploadSucceeded(*asset);
}

void KVSyncClient::transferFailed(ORAsset& asset, const platform::OptionalError& error) {
    _hadUnsucessfulAssetTransfer = true;
    if (!asset.isDownload())
        return;
    const std::uint64_t parts = KVAssetParts(asset);
    if (parts == 0 || (parts & KVAssetPartFile))
        _deleteTrackForFailedAsset(asset, error, "transfer");
    else
        KVLog(Info, transferOperation,
              "Could not get artwork/kenning data, but keeping asset track: %@", asset);
}

void KVSyncClient::downloadSucceeded(ORAsset& asset) {
    if (!asset.path()) {
        KVLog(Warning, transferOperation, "Asset with no path: %@", asset);
        return;
    }
    const std::int64_t syncID = KVPersistentIDFromString(asset.identifier());
    _library->performDatabaseTransactionWithBlock(
        [this, &asset, syncID](KV3DatabaseConnection&) { return fileDownload(asset, syncID); });
}

void KVSyncClient::uploadSucceeded(ORAsset& asset) {
    KVLog(Info, transferOperation, "Asset upload complete: %@", asset);
    const std::string identifier = asset.identifier();
    if (asset.variantOptions()[KVVariantOptionDeleteAfterUpload].boolValue()) {
        // By sync id, although the identifier is the persistent id: only tracks that the host knows
        // by that number are deleted.
        const std::shared_ptr<KV3Track> track =
            KVTrackWithSyncID(_library, KVPersistentIDFromString(identifier));
        if (track->deleteFromLibrary())
            KVLog(Info, transferOperation, "Deleted track after upload by host request: %@", track);
        else
            KVLog(Error, transferOperation,
                  "Could not deleted track after upload by host request: %@, %@", asset, track);
    }
    _pendingUploads.erase(identifier);
}

void KVSyncClient::assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                                      const platform::OptionalError& error) {
    if (KVIsRecoverableTransferError(error))
        _hadUnsucessfulAssetTransfer = true;
    _deleteTrackForFailedAsset(*asset, error, "install");
}

void KVSyncClient::_deleteTrackForFailedAsset(ORAsset& asset, const platform::OptionalError& error,
                                              std::string_view action) {
    constexpr std::string_view operation = "_deleteTrackForFailedAsset:withError:action:";
    if (KVIsRecoverableTransferError(error)) {
        KVLog(Info, operation, "Asset (%@) failed to %@ (%@); error recoverable, keeping track",
              asset, action, error);
        return;
    }
    if (!(KVAssetParts(asset) & KVAssetPartFile)) {
        KVLog(Info, operation,
              "Asset (%@) failed to %@ (%@); error non-recoverable, but no file part, keeping "
              "track",
              asset, action, error);
        return;
    }
    const std::shared_ptr<KV3Track> track = trackForFailedAsset(asset, _library);
    if (!track)
        return;
    if (asset.isRestore())
        track->setValue(false, KV3TrackPropertyNeedsRestore);
    if (_library->removeSourceFromTracksWithPersistentIDs(KV3SourceSync, {track->persistentID()}))
        KVLog(Info, operation, "Asset (%@) failed to %@ (%@); removed track %@", asset, action,
              error, track);
    else
        KVLog(Error, operation, "Asset (%@) failed to %@ (%@); could not remove track %@", asset,
              action, error, track);
}

void KVSyncClient::assetTransferEndedWithSuccess(bool success) {
    constexpr std::string_view operation = "assetTransferEndedWithSuccess:";
    KVLog(Debug, operation, "Media asset transfer completed. success=%d", success);
    _currentAssetNumber = 1;
    _postAssetTotal(0);
    _library->setSyncGenerationID(KV3CreateIntegerUUID());
    _library->performDatabaseTransactionWithBlock([this](KV3DatabaseConnection&) {
        KVLog(Info, operation, "Updating smart playlists after asset transfer finished");
        KV3Container::populateDynamicContainersInLibrary(_library, false);
        return true;
    });
    _library->removeTombstonesForDeletedItems();
    if (_autoCreatedSmartPlaylistsPIDs && !_autoCreatedSmartPlaylistsPIDs->empty()) {
        KVLog(Debug, operation, "Removing canned smart playlists: %@",
              *_autoCreatedSmartPlaylistsPIDs);
        KV3Container::deleteAutoCreatedBuiltInSmartPlaylistsPIDs(*_autoCreatedSmartPlaylistsPIDs,
                                                                 _library);
    } else {
        _library->setValueForDatabaseProperty(true, autoCreatedSmartPlaylistsDeletedProperty);
    }
    _library->setValueForDatabaseProperty(1, createdBuiltInSmartPlaylistsProperty);
    _library->reconnectToDatabase();
    platform::Platform::current().operatingSystem().namedNotifications().post(
        KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification);
}
