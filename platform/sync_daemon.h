// Purpose: what the sync daemon (Orlith) gives a plug-in and asks of it: transfer records, the
//   staging area, the host protocols and the change-sync delegate.
// Calling thread: the daemon calls protocol operations on threads of its own, those of one session
//   one after another, but cancelSyncOperations and the reports (paths to back up, metrics,
//   accounts, disabled types) at any time; records may be used on any thread, one at a time.
// Callback thread: progress callbacks run on the thread of the operation; a delegate may be called
//   on any thread and must not block.
// Ownership: records, the staging area and delegates are shared references.
// Failure: synchronous operations return a boolean and fill an error slot, which may be null; what
//   else can fail says so.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors.h"
#include "platform/operating_system.h"
#include "platform/values.h"

// The category of the daemon framework's own log lines.
inline constexpr std::string_view ORLogCategory = "com.vantor.Orlith";

class VDDownloadManager;

// A track's store identity. Absent values are null.
class ORStoreInfo {
public:
    static std::shared_ptr<ORStoreInfo> make();

    virtual ~ORStoreInfo() = default;
    virtual void setDSID(const platform::Value& accountID) = 0;
    virtual void setVantorID(const platform::Value& accountName) = 0;
    virtual void setFlavor(const platform::Value& flavor) = 0;
    virtual void setOrbisID(const platform::Value& itemID) = 0;
    virtual void setVeskaID(const platform::Value& cloudID) = 0;
    virtual void setMatchStatus(const platform::Value& status) = 0;
    virtual void setRedownloadStatus(const platform::Value& status) = 0;
    virtual void setPodcastEpisodeGUID(const platform::Value& guid) = 0;
};

// One transferable asset. A setter that was never called leaves its field absent, false or 0.
class ORAsset {
public:
    // Host to device.
    static std::shared_ptr<ORAsset> downloadAssetWithIdentifier(std::string_view identifier,
                                                                std::string_view dataclass,
                                                                std::string_view prettyName);
    // Device to host. An absent pretty name stays absent.
    static std::shared_ptr<ORAsset> uploadAssetWithIdentifier(
        std::string_view identifier, std::string_view dataclass, std::string_view sourcePath,
        std::optional<std::string_view> prettyName);
    // initWithIdentifier:dataclass:prettyName:  Pulled by the other side; neither a download nor an
    // upload.
    static std::shared_ptr<ORAsset> initWithIdentifier(std::string_view identifier,
                                                       std::string_view dataclass,
                                                       std::string_view prettyName);

    virtual ~ORAsset() = default;
    virtual std::string identifier() const = 0;
    virtual bool isDownload() const = 0;

    virtual std::optional<std::string> assetType() const = 0;
    virtual void setAssetType(const std::string& type) = 0;
    // A dictionary or null; keys below.
    virtual platform::Value variantOptions() const = 0;
    virtual void setVariantOptions(const platform::Value& options) = 0;
    virtual bool isRestore() const = 0;
    virtual void setIsRestore(bool isRestore) = 0;
    virtual bool bypassStore() const = 0;
    virtual void setBypassStore(bool bypassStore) = 0;
    // Where a received file lies.
    virtual std::optional<std::string> path() const = 0;
    virtual void setPath(const std::string& path) = 0;
    virtual void setStoreInfo(std::shared_ptr<ORStoreInfo> storeInfo) = 0;
    // A download's persistent identifier.
    virtual void setStorePID(std::int64_t persistentIdentifier) = 0;

    virtual std::string description() const = 0;
};

// The area where the daemon puts what it receives until the plug-in has taken it.
class ORStagehold {
public:
    static ORStagehold& sharedInstance();

    virtual ~ORStagehold() = default;
    // Called first for every received download, before the plug-in files it. The staging area moves
    // into place what the daemon itself installs (restores).
    virtual void processCompletedAsset(ORAsset& asset) = 0;
    // The received artwork file, absolute; absent when nothing was received under the identifier
    // and nothing is being delivered under it. Without an identifier: the directory of all of them,
    // which may not exist.
    virtual std::optional<std::string> artworkPathForDataclass(
        const std::string& dataclass, const std::optional<std::string>& artworkIdentifier) = 0;
    // The received Kenning file, absolute; absent when nothing was received.
    virtual std::optional<std::string> kenningPathForDataclass(
        const std::string& dataclass, const std::string& kenningIdentifier) = 0;
};

// Operations of a protocol may be optional. A client answers respondsTo with the truth, and nobody
// calls what it does not respond to: the default bodies throw this.
class ORUnimplementedOperation : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// In the order of the protocol.
enum class ORClientOperation {
    supportedDataclasses,
    registerMessageHandlersWithLink,
    currentSyncAnchor,
    prepareForSyncWithHostAnchor,
    prepareForSyncWithHostAnchorTorvelID,
    reconcileSync,
    syncEndedWithSuccess,
    cancelSyncOperations,
    reconcileRestore,
    restoreEnded,
    outstandingAssetTransfers,
    outstandingAssetTransfersWithDownloadManager,
    assetTransferSucceeded,
    assetTransferUpdatedProgress,
    metadataUpdate,
    assetInstallFailed,
    assetInstallSucceeded,
    assetTransferEndedWithSuccess,
    prioritizeAsset,
    prepareForBackup,
    backupEnded,
    pathsToBackup,
    vantorIDsForAssets,
    shouldRestoreFile,
    shouldBackgroundRestorePath,
    shouldBackgroundRestoreFile,
    clearSyncData,
    disabledAssetTypes,
    installedAssetMetrics,
    installedAssets,
    // An extension of this daemon, after the protocol's own.
    _processKenningConfigPlist,
};

// Anchor-based sync. A session is: prepare, reconcile, outstanding transfers, a report per
// transfer, ended. Only supportedDataclasses is required.
class ORClient {
public:
    using Progress = std::function<void(double)>;

    virtual ~ORClient() = default;
    virtual bool respondsTo(ORClientOperation operation) const = 0;

    virtual std::vector<std::string> supportedDataclasses() = 0;
    virtual std::string currentSyncAnchor();
    // prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:
    virtual bool prepareForSyncWithHostAnchor(const std::string& hostAnchor,
                                              const Progress& progressCallback,
                                              std::uint32_t torvelID,
                                              const std::string& hostVersion,
                                              platform::OptionalError* error);
    // reconcileSync:withNewAnchor:progressCallback:error:  Types: ORSyncNoSync, ORSyncReset,
    // others.
    virtual bool reconcileSync(std::uint32_t syncType, const std::string& newAnchor,
                               const Progress& progressCallback, platform::OptionalError* error);
    // Returns only after the import has been cancelled.
    virtual void cancelSyncOperations();
    // reconcileRestoreWithError:  After the library was brought back without its files.
    virtual bool reconcileRestore(platform::OptionalError* error);
    // outstandingAssetTransfersWithDownloadManager:  The manager may be null.
    virtual std::vector<std::shared_ptr<ORAsset>> outstandingAssetTransfersWithDownloadManager(
        VDDownloadManager* downloadManager);
    // assetTransfer:succeeded:withError:
    virtual void assetTransferSucceeded(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                                        const platform::OptionalError& error);
    // metadataUpdate:forAsset:withNewAnchor:  Of one track, a dictionary that can be written as a
    // property list. Returns once the library has taken or refused it; which of them is not told.
    virtual void metadataUpdate(const platform::Dictionary& metadataUpdate,
                                const std::shared_ptr<ORAsset>& asset,
                                const std::string& newAnchor);
    // assetInstallFailed:withError:
    virtual void assetInstallFailed(const std::shared_ptr<ORAsset>& asset,
                                    const platform::OptionalError& error);
    // assetTransferEndedWithSuccess:
    virtual void assetTransferEndedWithSuccess(bool success);
    // pathsToBackup:pathsNotToBackup:  Absolute device paths. Each may be null.
    virtual void pathsToBackup(std::vector<std::string>* pathsToBackup,
                               std::vector<std::string>* pathsNotToBackup);
    // The names of the accounts that the library's items were bought with.
    virtual std::set<std::string> vantorIDsForAssets();
    // The next sync starts from nothing.
    virtual void clearSyncData();
    // The types of assets that the host must not send; absent when it may send all.
    virtual std::optional<std::set<std::string>> disabledAssetTypes();
    // By asset type, a dictionary of sizes and counts; keys below.
    virtual platform::Dictionary installedAssetMetrics();
    // _processKenningConfigPlist:  The host's recommendation settings, a dictionary.
    virtual void _processKenningConfigPlist(const platform::Value& configPlist);
};

// Keys of an asset type's metrics, each absent where nothing counts for it.
// Unsigned: bytes on disk, those of purgeable files included.
inline constexpr std::string_view ORMetricsPhysicalSizeKey = "_PhysicalSize";
// Unsigned: tracks that are kept.
inline constexpr std::string_view ORMetricsCountKey = "_Count";
// Unsigned: bytes on disk of what may be removed at any time.
inline constexpr std::string_view ORMetricsPurgeableSizeKey = "_PurgeableSize";

// The bytes that a file of a logical size (bytes) occupies on the device's disk.
std::uint64_t ORGetPhysicalSizeForLogicalSize(std::uint64_t logicalSize);
// The bytes that a directory's contents occupy on disk; 0 when it is not there. A file with
// several names counts once, a symbolic link is not followed.
std::uint64_t ORGetDiskUsageForPath(const std::string& path);

inline constexpr std::uint32_t ORSyncNoSync = 0;
inline constexpr std::uint32_t ORSyncReset = 2;

// Writes bytes to a stream on a thread of its own.
class ORStreamWriter {
public:
    // initWithOutputStream:queue:  Without a queue it makes one.
    static std::shared_ptr<ORStreamWriter> initWithOutputStream(
        std::shared_ptr<platform::OutputStream> outputStream,
        std::shared_ptr<platform::WorkQueue> queue);

    virtual ~ORStreamWriter() = default;
    // writeAllData:withCompletion:  Called back exactly once, on the writer's queue, when all is
    // written or the stream has failed. The writer may be released in its own callback.
    virtual void writeAllData(platform::Data data,
                              std::function<void(const platform::OptionalError&)> completion) = 0;
};

// Reads a stream to its end on a thread of its own.
class ORStreamReader {
public:
    // initWithInputStream:queue:  Without a queue it makes one.
    static std::shared_ptr<ORStreamReader> initWithInputStream(
        std::shared_ptr<platform::InputStream> inputStream,
        std::shared_ptr<platform::WorkQueue> queue);

    virtual ~ORStreamReader() = default;
    // readAllDataWithCompletion:  Called back exactly once, on the reader's queue, with all bytes
    // or with what stopped it. The reader may be released in its own callback.
    virtual void readAllDataWithCompletion(
        std::function<void(platform::Data data, const platform::OptionalError&)> completion) = 0;
};

class ORSyncClient;

class ORSyncClientDelegate {
public:
    virtual ~ORSyncClientDelegate() = default;
    // syncClient:hasChangesWithPriority:  0 sync preferences, 1 contents, 2 display values.
    virtual void syncClientHasChangesWithPriority(ORSyncClient& syncClient,
                                                  std::int64_t priority) = 0;
};

enum class ORSyncClientOperation {
    setDelegate,
    syncDataClass,
    currentRevision,
    revisionVersionToken,
    getChanges,
    applyChanges,
    resetSyncData,
    syncSessionCompleted,
};

// Revision-based change sync.
class ORSyncClient {
public:
    virtual ~ORSyncClient() = default;
    virtual bool respondsTo(ORSyncClientOperation operation) const = 0;

    using StartHandler = std::function<void(const platform::Dictionary& exportParams)>;
    using ProgressHandler = std::function<void(std::uint64_t completed, std::uint64_t total)>;
    using ErrorHandler = std::function<void(const platform::OptionalError&)>;
    using ApplyHandler =
        std::function<void(const platform::OptionalError& error, std::int64_t revision)>;

    // Null clears it.
    virtual void setDelegate(std::shared_ptr<ORSyncClientDelegate> delegate) = 0;
    virtual std::string syncDataClass() = 0;
    virtual std::int64_t currentRevision() = 0;
    // Opaque; compared, never looked into.
    virtual platform::Value revisionVersionToken() = 0;
    // resetSyncDataWithCompletion:  Called back before it returns.
    virtual void resetSyncDataWithCompletion(const ErrorHandler& completionHandler) = 0;
    // getChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:intoOutputStream:
    //     withStartHandler:withProgressHandler:withCompletionHandler:
    // The stream is open and stays so. The start handler comes before the first byte, the
    // completion handler exactly once, on the calling thread or on the stream writer's.
    virtual void getChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                       std::int64_t afterRevision, std::int64_t upToRevision,
                                       const platform::Dictionary& syncParams,
                                       std::shared_ptr<platform::OutputStream> outputStream,
                                       const StartHandler& startHandler,
                                       const ProgressHandler& progressHandler,
                                       const ErrorHandler& completionHandler) = 0;
    // applyChangesForSyncType:endpointType:fromStream:withSyncParams:withProgressHandler:
    //     withCompletionHandler:
    // The stream may be null. Called back exactly once, on the calling thread, the stream reader's
    // or the import service's. A "PlaylistDataLen" beyond the stream throws std::out_of_range on
    // the stream reader's queue, and there is no call back.
    virtual void applyChangesForSyncType(std::uint32_t syncType, std::uint32_t endpointType,
                                         std::shared_ptr<platform::InputStream> stream,
                                         const platform::Dictionary& syncParams,
                                         const ProgressHandler& progressHandler,
                                         const ApplyHandler& completionHandler) = 0;
    // syncSessionCompletedWithError:allAssetsTransferred:
    virtual void syncSessionCompletedWithError(const platform::OptionalError& error,
                                               bool allAssetsTransferred) = 0;
};

enum class ORAssetClientOperation {
    assetDataClass,
    assetsToSync,
    getDataForAsset,
    assetSyncDidCompleteWithError,
    assetSyncDidUpdateProgress,
    assetSyncDidComplete,
};

// Assets that the other side pulls.
class ORAssetClient {
public:
    virtual ~ORAssetClient() = default;
    virtual bool respondsTo(ORAssetClientOperation operation) const = 0;

    using AssetsHandler = std::function<void(const platform::OptionalError& error,
                                             const std::vector<std::shared_ptr<ORAsset>>& assets)>;
    // An error, or a stream and the file's name.
    using DataHandler = std::function<void(const platform::OptionalError& error,
                                           std::unique_ptr<platform::InputStream> stream,
                                           const std::optional<std::string>& fileName)>;

    virtual std::string assetDataClass() = 0;
    // assetsToSyncWithCompletion:  Called back before it returns.
    virtual void assetsToSyncWithCompletion(const AssetsHandler& completion) = 0;
    // getDataForAsset:withCompletion:  Returns at once. Called back at most once, on a thread of
    // the client's or of the artwork service's; for some requests never.
    virtual void getDataForAsset(std::shared_ptr<ORAsset> asset, DataHandler completion) = 0;
    // assetSync:didCompleteWithError:  Throws std::logic_error for an asset of no known kind.
    virtual void assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>& asset,
                                               const platform::OptionalError& error) = 0;
    // assetSync:didUpdateProgress:  From 0 to 1, as the file comes; beside other operations.
    virtual void assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>& asset,
                                            double progress) = 0;
    virtual void assetSyncDidComplete() = 0;
};

// What the daemon implements of this header; installed in the Platform.
class SyncDaemonServices {
public:
    virtual ~SyncDaemonServices() = default;
    virtual std::shared_ptr<ORAsset> makeDownloadAsset(std::string_view identifier,
                                                       std::string_view dataclass,
                                                       std::string_view prettyName) = 0;
    virtual std::shared_ptr<ORAsset> makeUploadAsset(
        std::string_view identifier, std::string_view dataclass, std::string_view sourcePath,
        std::optional<std::string_view> prettyName) = 0;
    virtual std::shared_ptr<ORAsset> makeAsset(std::string_view identifier,
                                               std::string_view dataclass,
                                               std::string_view prettyName) = 0;
    virtual std::shared_ptr<ORStoreInfo> makeStoreInfo() = 0;
    virtual std::shared_ptr<ORStreamWriter> makeStreamWriter(
        std::shared_ptr<platform::OutputStream> outputStream,
        std::shared_ptr<platform::WorkQueue> queue) = 0;
    virtual std::shared_ptr<ORStreamReader> makeStreamReader(
        std::shared_ptr<platform::InputStream> inputStream,
        std::shared_ptr<platform::WorkQueue> queue) = 0;
    virtual ORStagehold& stagehold() = 0;
    virtual std::uint64_t physicalSizeForLogicalSize(std::uint64_t logicalSize) = 0;
    virtual std::uint64_t diskUsageForPath(const std::string& path) = 0;
};
