// The one object that the sync daemon creates from the plug-in. It plays every role towards the
// daemon and the download manager, and holds the state that its operations share. The headings
// below name the file that defines the operations under them.
//
// Threads: the daemon serialises the operations of a session; cancelSyncOperations, the reports,
// setDelegate, getDataForAsset, the library's notifications and the download manager's calls come
// at any time.
// Each variable says what protects it.
// Exceptions: of its own those that the protocols name; those of the platform's services pass
// through to the daemon.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "SyncBundle/change_sync/guarded_streams.h"
#include "SyncBundle/guarded_reference.h"
#include "platform/media_library.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"
#include "platform/sync_daemon.h"

struct KVSyncAssetRequest;

class KVSyncClient final : public ORClient,
                           public ORSyncClient,
                           public ORAssetClient,
                           public VDDownloadManagerObserver,
                           public std::enable_shared_from_this<KVSyncClient> {
public:
    // ---- SyncBundle/KVSyncClient.cpp ----

    // init  Null when there is no memory for the object.
    static std::shared_ptr<KVSyncClient> init();
    // dealloc
    ~KVSyncClient() override;
    KVSyncClient(const KVSyncClient&) = delete;
    KVSyncClient& operator=(const KVSyncClient&) = delete;

    // True for the operations below and for no others.
    bool respondsTo(ORClientOperation operation) const override;
    bool respondsTo(ORSyncClientOperation operation) const override;
    bool respondsTo(ORAssetClientOperation operation) const override;
    bool respondsTo(VDDownloadManagerObserverOperation operation) const override;

    // setDelegate:
    void setDelegate(std::shared_ptr<ORSyncClientDelegate> delegate) override;
    // supportedDataclasses
    std::vector<std::string> supportedDataclasses() override;
    // cancelSyncOperations  Returns when the library's import has been cancelled.
    void cancelSyncOperations() override;
    // syncSessionCompletedWithError:allAssetsTransferred:
    void syncSessionCompletedWithError(const platform::OptionalError& error,
                                       bool allAssetsTransferred) override;

    // _resumeObservingChangeNotifications
    void _resumeObservingChangeNotifications();
    // _pauseObservingChangeNotifications
    void _pauseObservingChangeNotifications();
    // _handleContentsChangedNotification:
    void _handleContentsChangedNotification();
    // _handleDisplayValuesChangedNotification:
    void _handleDisplayValuesChangedNotification();
    // _handleSyncPrefsChangedNotification:
    void _handleSyncPrefsChangedNotification();
    // _getPlaylistSyncSettingsParams  Always null.
    platform::Value _getPlaylistSyncSettingsParams() const;
    // _applyPlaylistSyncSettingsParams:  Leaves everything as it is.
    void _applyPlaylistSyncSettingsParams(const platform::Value& params);

    // ---- SyncBundle/anchor_sync/prepare_for_sync.cpp ----

    // currentSyncAnchor
    std::string currentSyncAnchor() override;
    // prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:
    bool prepareForSyncWithHostAnchor(const std::string& hostAnchor,
                                      const Progress& progressCallback, std::uint32_t torvelID,
                                      const std::string& hostVersion,
                                      platform::OptionalError* error) override;

    // ---- SyncBundle/anchor_sync/reconcile_sync.cpp ----

    // reconcileSync:withNewAnchor:progressCallback:error:
    bool reconcileSync(std::uint32_t syncType, const std::string& newAnchor,
                       const Progress& progressCallback, platform::OptionalError* error) override;

    // ---- SyncBundle/anchor_sync/reconcile_restore.cpp ----

    // reconcileRestoreWithError:  Always true, never with an error; what fails is logged.
    bool reconcileRestore(platform::OptionalError* error) override;

    // ---- SyncBundle/anchor_sync/media_reports.cpp ----

    // pathsToBackup:pathsNotToBackup:  The second is left as it is. Waits for the manifest.
    void pathsToBackup(std::vector<std::string>* pathsToBackup,
                       std::vector<std::string>* pathsNotToBackup) override;
    // installedAssetMetrics
    platform::Dictionary installedAssetMetrics() override;
    // vantorIDsForAssets  Accounts that the library's cache does not know have no name.
    std::set<std::string> vantorIDsForAssets() override;
    // disabledAssetTypes  Waits for the cloud client.
    std::optional<std::set<std::string>> disabledAssetTypes() override;
    // clearSyncData
    void clearSyncData() override;

    // ---- SyncBundle/anchor_sync/metadata_update.cpp ----

    // metadataUpdate:forAsset:withNewAnchor:  Waits for the import, whose outcome is only logged.
    void metadataUpdate(const platform::Dictionary& metadataUpdate,
                        const std::shared_ptr<ORAsset>& asset,
                        const std::string& newAnchor) override;

    // ---- SyncBundle/asset_transfer/outstanding_asset_transfers.cpp ----

    // outstandingAssetTransfersWithDownloadManager:
    std::vector<std::shared_ptr<ORAsset>> outstandingAssetTransfersWithDownloadManager(
        VDDownloadManager* downloadManager) override;

    // ---- SyncBundle/asset_transfer/transfer_completion.cpp ----

    // assetTransfer:succeeded:withError:
    void assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                const platform::OptionalError& error) override;
    // assetInstallFailed:withError:
    void assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                            const platform::OptionalError& error) override;
    // assetTransferEndedWithSuccess:
    void assetTransferEndedWithSuccess(bool success) override;

    // ---- SyncBundle/asset_transfer/kenning_ingestion.cpp ----

    // _processKenningPlist:kenningIDString:kenningChecksum:
    void _processKenningPlist(const platform::Dictionary& plist, const std::string& kenningIDString,
                              std::int64_t kenningChecksum);
    // _processKenningConfigPlist:
    void _processKenningConfigPlist(const platform::Value& configPlist) override;

    // ---- SyncBundle/change_sync/revision_state.cpp ----

    // syncDataClass  Always "Media".
    std::string syncDataClass() override;
    // currentRevision
    std::int64_t currentRevision() override;
    // revisionVersionToken
    platform::Value revisionVersionToken() override;
    // resetSyncDataWithCompletion:  Called back before it returns.
    void resetSyncDataWithCompletion(const ErrorHandler& completionHandler) override;

    // ---- SyncBundle/change_sync/change_export.cpp ----

    // getChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:intoOutputStream:
    //     withStartHandler:withProgressHandler:withCompletionHandler:
    // Returns after the start handler, possibly before the export is complete.
    void getChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                               std::int64_t afterRevision, std::int64_t upToRevision,
                               const platform::Dictionary& syncParams,
                               std::shared_ptr<platform::OutputStream> outputStream,
                               const StartHandler& startHandler,
                               const ProgressHandler& progressHandler,
                               const ErrorHandler& completionHandler) override;

    // ---- SyncBundle/change_sync/change_import.cpp ----

    // applyChangesForSyncType:endpointType:fromStream:withSyncParams:withProgressHandler:
    //     withCompletionHandler:
    // Returns once the read has started.
    void applyChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                 std::shared_ptr<platform::InputStream> stream,
                                 const platform::Dictionary& syncParams,
                                 const ProgressHandler& progressHandler,
                                 const ApplyHandler& completionHandler) override;

    // ---- SyncBundle/asset_sync/asset_gathering.cpp ----

    // assetDataClass
    std::string assetDataClass() override;
    // assetsToSyncWithCompletion:  Called back before it returns, never with an error.
    void assetsToSyncWithCompletion(const AssetsHandler& completion) override;

    // ---- SyncBundle/asset_sync/asset_data.cpp ----

    // getDataForAsset:withCompletion:  From any thread. No answer comes to an asset of no known
    // kind, to a request that a newer one for the same asset replaced, and for a track whose
    // download ended in a file name without a file.
    void getDataForAsset(std::shared_ptr<ORAsset> asset, DataHandler completion) override;

    // ---- SyncBundle/asset_sync/completed_assets.cpp ----

    // assetSync:didCompleteWithError:  std::logic_error for an asset of no known kind.
    void assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>& asset,
                                       const platform::OptionalError& error) override;
    // assetSync:didUpdateProgress:  Nothing happens.
    void assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>& asset,
                                    double progress) override;
    // assetSyncDidComplete
    void assetSyncDidComplete() override;

    // ---- SyncBundle/asset_sync/download_observation.cpp ----

    // downloadManager:downloadStatesDidChange:  Returns at once.
    void downloadManagerDownloadStatesDidChange(
        VDDownloadManager& manager,
        const std::vector<std::shared_ptr<VDDownload>>& downloads) override;

private:
    // Reads and replaces the variables below in tests.
    friend class KVSyncClientInspector;

    // ---- SyncBundle/KVSyncClient.cpp ----

    // The leeway of _requestTimer, whatever it is set to.
    static constexpr platform::Nanoseconds KVRequestTimerLeeway = 1'000'000;
    KVSyncClient() = default;
    void setUp();
    void makeRequestTimer();
    void makeDownloadManager();
    void tellDelegateOfChanges(std::int64_t priority);

    // ---- SyncBundle/progress_notifications.cpp ----

    // A named notification's registration, made on first use and kept as long as the process.
    struct NotificationRegistration {
        std::mutex mutex;
        std::optional<int> token;  // guarded by mutex; absent until registered
    };
    // Shared by all clients of the process.
    static NotificationRegistration assetTotalRegistration;
    static NotificationRegistration currentAssetNumberRegistration;
    static std::optional<int> registeredToken(NotificationRegistration& registration,
                                              std::string_view name);
    // _postAssetTotal:
    void _postAssetTotal(std::uint64_t total);
    // _postCurrentAssetNumber:  At most one post a second; the state is set each time.
    void _postCurrentAssetNumber(std::uint64_t number);

    // ---- SyncBundle/anchor_sync/prepare_for_sync.cpp ----

    void saveChangesForHost(KV3DatabaseConnection& connection);
    void removeSyncPlistFiles();

    // ---- SyncBundle/anchor_sync/upload_operations.cpp ----

    // _syncPlistFiles  Full paths, in string order.
    std::vector<std::string> _syncPlistFiles();
    // _processUploadTrackOperations  Always true.
    bool _processUploadTrackOperations();
    // _evaluateUploadTrackDatabaseChangeStep:  False when "pid" is no number.
    bool _evaluateUploadTrackDatabaseChangeStep(const platform::Value& step);

    // ---- SyncBundle/anchor_sync/reconcile_sync.cpp ----

    struct ImportOutcome;
    ImportOutcome importHostData(std::uint32_t syncType, const std::string& newAnchor);

    // ---- SyncBundle/asset_transfer/outstanding_asset_transfers.cpp ----

    using DownloadsByIdentifier = std::map<std::string, std::shared_ptr<VDDownload>, std::less<>>;
    // _existingOutstandingAssetTransfersWithDownloadManager:  By library item identifier.
    DownloadsByIdentifier _existingOutstandingAssetTransfersWithDownloadManager(
        VDDownloadManager* downloadManager);

    // ---- SyncBundle/asset_transfer/transfer_completion.cpp ----

    void transferFailed(ORAsset& asset, const platform::OptionalError& error);
    void downloadSucceeded(ORAsset& asset);
    void uploadSucceeded(ORAsset& asset);
    // _deleteTrackForFailedAsset:withError:action:
    void _deleteTrackForFailedAsset(ORAsset& asset, const platform::OptionalError& error,
                                    std::string_view action);

    // ---- SyncBundle/asset_transfer/download_filing.cpp ----

    bool fileDownload(ORAsset& asset, std::int64_t syncID);
    void fileMedia(ORAsset& asset, KV3Track& track, std::int64_t syncID);
    void fileArtwork(ORAsset& asset, KV3Track& track);
    void fileKenningData(ORAsset& asset, KV3Track& track);
    // Takes the cloud location off a track that has one, before it gets another.
    void unlinkFromCloud(KV3Track& track);

    // ---- SyncBundle/asset_transfer/artwork_ingestion.cpp ----

    // _processArtworkIdentifier:artworkToken:artworkType:mediaType:sourceType:
    bool _processArtworkIdentifier(const std::string& identifier,
                                   const std::optional<std::string>& artworkToken,
                                   std::int64_t artworkType, std::uint32_t mediaType,
                                   std::int64_t sourceType);

    // ---- SyncBundle/change_sync/change_export.cpp ----

    platform::Dictionary exportParams(std::uint32_t endpointType, std::size_t playlistDataLength,
                                      std::uint64_t itemCount) const;
    // The continuation runs on the stream writer's thread, whatever became of the bytes.
    void writePlaylistData(platform::Data playlistData,
                           const std::shared_ptr<platform::OutputStream>& outputStream,
                           const platform::Job& continuation);
    // _exportTrackChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:
    //     intoOutputStream:withProgressHandler:withCompletionHandler:
    // The second stage of an export; it reports no progress.
    void _exportTrackChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                        std::int64_t afterRevision, std::int64_t upToRevision,
                                        const platform::Dictionary& syncParams,
                                        const std::shared_ptr<platform::OutputStream>& outputStream,
                                        const ProgressHandler& progressHandler,
                                        const ErrorHandler& completionHandler);

    // ---- SyncBundle/change_sync/change_import.cpp ----

    struct ChangeImport;
    void importReadData(const std::shared_ptr<ChangeImport>& import, platform::Data data,
                        const platform::OptionalError& error);
    void importSections(const std::shared_ptr<ChangeImport>& import);
    void finishImport(const ChangeImport& import, const platform::OptionalError& error);

    // ---- SyncBundle/asset_sync/asset_gathering.cpp ----

    using Assets = std::vector<std::shared_ptr<ORAsset>>;
    // _tracksToSyncPredicate  The tracks whose files are wanted.
    static KV3Predicate _tracksToSyncPredicate();
    // _trackAssetsToSync
    Assets _trackAssetsToSync();
    // _artworkAssetsToSync
    Assets _artworkAssetsToSync();
    // _kenningAssetsToSync  Always empty.
    Assets _kenningAssetsToSync();
    // _maxArtworkSizeForMediaType:  In pixels; 0 x 0 when no size is made of itself.
    static KV3ArtworkSize _maxArtworkSizeForMediaType(std::uint32_t mediaType);
    // _artworkSizeVariantForMediaType:  Width and height in pixels, or null.
    static platform::Value _artworkSizeVariantForMediaType(std::uint32_t mediaType);
    // Filled on first use and kept as long as the process.
    struct ArtworkSizeVariants {
        std::mutex mutex;
        // Guarded by mutex; absent until filled.
        std::optional<std::map<std::uint32_t, platform::Value>> byMediaType;
    };
    // Shared by all clients of the process.
    static ArtworkSizeVariants artworkSizeVariants;

    // ---- SyncBundle/asset_sync/asset_data.cpp ----

    // All on _queue.
    void provideData(const std::shared_ptr<ORAsset>& asset, const DataHandler& completion);
    // getDataForTrackAsset:withCompletion:
    void getDataForTrackAsset(const std::shared_ptr<ORAsset>& asset, const DataHandler& completion);
    // getDataForArtworkAsset:withCompletion:
    void getDataForArtworkAsset(const std::shared_ptr<ORAsset>& asset,
                                const DataHandler& completion);
    // getDataForKenningAsset:withCompletion:  Such data is never given away.
    void getDataForKenningAsset(const std::shared_ptr<ORAsset>& asset,
                                const DataHandler& completion);

    // ---- SyncBundle/asset_sync/completed_assets.cpp ----

    // _processCompletedTrackAsset:
    void _processCompletedTrackAsset(ORAsset& asset);
    // _processCompletedArtworkAsset:
    void _processCompletedArtworkAsset(ORAsset& asset);
    // _processCompletedKenningAsset:  Such data is dropped.
    void _processCompletedKenningAsset(ORAsset& asset);
    // False when a chapter's picture could not be taken in; the rest is left then.
    bool processChapterArtwork(const platform::Value& chapterData, std::uint32_t mediaType);
    void processCoverArtwork(ORAsset& asset, KV3Track& track, std::uint32_t mediaType);

    // ---- SyncBundle/asset_sync/download_observation.cpp ----

    // On _queue.
    void downloadStateDidChange(VDDownload& download);

    // ---- SyncBundle/asset_sync/adjust_request_queue.cpp ----

    // _adjustRequestQueue  Expires overdue requests and arms the timer for the next; on _queue.
    void _adjustRequestQueue();

    // ---- instance variables ----

    // "The session" below: touched only by operations that the daemon calls one after another.

    // The device's media library. Set once in init; itself callable from any thread.
    std::shared_ptr<KV3Korvane> _library;
    // Uploads that the sync settings files ask for, by asset identifier. The session.
    std::map<std::string, std::shared_ptr<ORAsset>, std::less<>> _pendingUploads;
    // Built-in smart playlists that the library made by itself, as of reconcile. The session.
    std::optional<std::vector<std::int64_t>> _autoCreatedSmartPlaylistsPIDs;
    // The library's revision when the session was prepared; for reference. The session.
    std::int64_t _syncStartRevision = 0;
    // The base location "CloudAssets", 0 when there is none. The session.
    std::int64_t _cloudAssetBaseLocationID = 0;
    // Whether the library holds Kenning data from the cloud. Set once in init.
    bool _hasCloudKenningData = false;
    // The host session's identifier. The session.
    std::uint32_t _torvelID = 0;
    // Whether some transfer of this session failed; for reference. The session.
    bool _hadUnsucessfulAssetTransfer = false;
    // The number of the transfer in progress, from 1. The session.
    std::uint64_t _currentAssetNumber = 0;
    // When the current asset number was last posted (wall clock). The session.
    std::optional<platform::Date> _lastAssetNumberPostDate;
    // The stream writers and readers of change sync that are at work. Put here on the daemon's
    // threads, taken off on the streams' own; guards itself.
    GuardedStreams _streams;
    // The process's own, not owned. Set once in init; itself callable from any thread.
    platform::NotificationCenter* _notificationCenter = nullptr;
    // Told about library changes on whatever thread made them; guards itself.
    GuardedReference<ORSyncClientDelegate> _syncClientDelegate;
    // Serialises the request table, its timer and the start and stop of observation. Set once in
    // init; itself callable from any thread.
    std::shared_ptr<platform::WorkQueue> _queue;
    // Device-pulled asset requests, by asset identifier; a newer one takes the place of an older
    // one. On _queue.
    std::map<std::string, std::shared_ptr<KVSyncAssetRequest>, std::less<>> _requestsByIdentifier;
    // Fires when the oldest request is due. On _queue once init has made it.
    std::shared_ptr<platform::TimerSource> _requestTimer;
    // The store download manager. Set once in init; itself callable from any thread.
    std::shared_ptr<VDDownloadManager> _downloadManager;
    // Companion-device sync settings: always null.
    platform::Value _wispSyncSettings;
};
