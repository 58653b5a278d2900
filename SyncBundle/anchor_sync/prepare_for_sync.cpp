#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/anchor_sync/sync_properties.h"
#include "SyncBundle/log.h"
#include "SyncBundle/media_paths.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation =
    "prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:";

constexpr std::string_view cloudAssetBaseLocationQuery =
    "SELECT base_location_id from base_location where path = 'CloudAssets'";

platform::OperatingSystem& operatingSystem() {
    return platform::Platform::current().operatingSystem();
}

void replaceTemporaryMediaDirectory() {
    platform::FileSystem& files = operatingSystem().fileSystem();
    const std::string directory(KVTemporaryMediaDirectory);
    static_cast<void>(files.removeItem(directory));
    static_cast<void>(files.createDirectory(directory));
}

}  // namespace

std::string KVSyncClient::currentSyncAnchor() {
    const platform::Value anchor = _library->valueForDatabaseProperty(KVSyncAnchorProperty);
    return anchor.isNull() ? "0" : anchor.description();
}

bool KVSyncClient::prepareForSyncWithHostAnchor(const std::string&, const Progress&,
                                                std::uint32_t torvelID, const std::string&,
                                                platform::OptionalError*) {
    operatingSystem().namedNotifications().post(
        KV3KorvaneBackgroundTasksShouldSuppressChangesNotification);
    _torvelID = torvelID;
    _library->performReadOnlyDatabaseTransactionWithBlock(
        [this](KV3DatabaseConnection& connection) {
            saveChangesForHost(connection);
            return true;
        });
    removeSyncPlistFiles();
    replaceTemporaryMediaDirectory();
    KVLog(Debug, operation, "Prepared!");
    return true;
}

void KVSyncClient::saveChangesForHost(KV3DatabaseConnection& connection) {
    _syncStartRevision = _library->currentRevision();
    const std::int64_t lastSyncedRevision =
        _library->valueForDatabaseProperty(KVLastSyncedRevisionProperty).int64Value();
    _cloudAssetBaseLocationID =
        connection.executeQuery(cloudAssetBaseLocationQuery)->int64ValueForFirstRowAndColumn();

    KVLog(Info, operation, "Saving out track metadata since revision %lld", lastSyncedRevision);
    _library->saveTrackMetadataSinceRevision(lastSyncedRevision, _torvelID);
    if (lastSyncedRevision != 0) {
        KVLog(Info, operation, "Saving out playlist data since revision %lld", lastSyncedRevision);
        _library->savePlaylistsSinceRevision(lastSyncedRevision, _torvelID);
    } else {
        KVLog(Info, operation, "Not saving out playlist data because this a first sync");
    }
}

void KVSyncClient::removeSyncPlistFiles() {
    platform::FileSystem& files = operatingSystem().fileSystem();
    for (const std::string& path : _syncPlistFiles()) {
        if (const int errorNumber = files.unlink(path); errorNumber != 0)
            KVLog(Warning, operation, "Could not remove sync plist during prepare: %s",
                  files.errorText(errorNumber));
    }
}
