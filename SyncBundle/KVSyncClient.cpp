#include "SyncBundle/KVSyncClient.h"

#include <new>

#include "SyncBundle/log.h"
#include "SyncBundle/transfer_records.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view className = "KVSyncClient";
constexpr std::string_view hasCloudKenningDataProperty = "KVPelorinHasCloudKenningData";

// Priorities of a change, as the daemon numbers them.
constexpr std::int64_t syncPrefsPriority = 0;
constexpr std::int64_t contentsPriority = 1;
constexpr std::int64_t displayValuesPriority = 2;

}  // namespace

std::shared_ptr<KVSyncClient> KVSyncClient::init() {
    std::shared_ptr<KVSyncClient> client(new (std::nothrow) KVSyncClient);
    if (client)
        client->setUp();
    return client;
}

// What needs a shared reference to the client cannot be done in its constructor.
void KVSyncClient::setUp() {
    platform::OperatingSystem& system = platform::Platform::current().operatingSystem();
    _queue = system.makeSerialQueue(className);
    _library = KV3Korvane::sharedLibrary();
    _pendingUploads.clear();
    _autoCreatedSmartPlaylistsPIDs.reset();
    _hasCloudKenningData =
        _library->valueForDatabaseProperty(hasCloudKenningDataProperty).boolValue();
    // A new client never starts with the library's background tasks held.
    system.namedNotifications().post(
        KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification);
    _streams.clear();
    _notificationCenter = &system.defaultNotificationCenter();
    _resumeObservingChangeNotifications();
    _requestsByIdentifier.clear();
    makeRequestTimer();
    makeDownloadManager();
}

void KVSyncClient::makeRequestTimer() {
    _requestTimer = platform::Platform::current().operatingSystem().makeTimer(_queue);
    // Shared for as long as the handler runs only: a handler that held the client would keep it
    // from ever being torn down.
    _requestTimer->setEventHandler([weakClient = weak_from_this()] {
        if (const auto client = weakClient.lock())
            client->_adjustRequestQueue();
    });
    _requestTimer->setTimer(platform::Never, platform::Never, KVRequestTimerLeeway);
    _requestTimer->resume();
}

void KVSyncClient::makeDownloadManager() {
    const auto options = VDDownloadManagerOptions::make();
    std::vector<std::string> kinds;
    for (const std::string_view kind :
         {VDDownloadKindAudiobook, VDDownloadKindMovie, VDDownloadKindMusic,
          VDDownloadKindMusicVideo, VDDownloadKindTelevisionEpisode, VDDownloadKindVideoPodcast,
          VDDownloadKindPodcast})
        kinds.emplace_back(kind);
    options->setDownloadKinds(kinds);
    std::vector<std::string> properties;
    for (const std::string_view property :
         {VDDownloadPropertyBundleIdentifier, VDDownloadPropertyLibraryItemIdentifier,
          VDDownloadPropertyDownloadPhase})
        properties.emplace_back(property);
    options->setPrefetchedDownloadProperties(properties);
    _downloadManager = VDDownloadManager::initWithManagerOptions(options);
    _downloadManager->addObserver(weak_from_this());
}

// Either is null only when init did not get that far.
KVSyncClient::~KVSyncClient() {
    if (_library)
        _library->reconnectToDatabase();
    if (_notificationCenter)
        _notificationCenter->removeObserver(this);
}

bool KVSyncClient::respondsTo(ORClientOperation operation) const {
    switch (operation) {
        case ORClientOperation::supportedDataclasses:
        case ORClientOperation::currentSyncAnchor:
        case ORClientOperation::prepareForSyncWithHostAnchorTorvelID:
        case ORClientOperation::reconcileSync:
        case ORClientOperation::cancelSyncOperations:
        case ORClientOperation::reconcileRestore:
        case ORClientOperation::outstandingAssetTransfersWithDownloadManager:
        case ORClientOperation::assetTransferSucceeded:
        case ORClientOperation::metadataUpdate:
        case ORClientOperation::assetInstallFailed:
        case ORClientOperation::assetTransferEndedWithSuccess:
        case ORClientOperation::pathsToBackup:
        case ORClientOperation::vantorIDsForAssets:
        case ORClientOperation::clearSyncData:
        case ORClientOperation::disabledAssetTypes:
        case ORClientOperation::installedAssetMetrics:
        case ORClientOperation::_processKenningConfigPlist:
            return true;
        default:
            return false;
    }
}

// All of them are required.
bool KVSyncClient::respondsTo(ORSyncClientOperation) const {
    return true;
}

bool KVSyncClient::respondsTo(ORAssetClientOperation) const {
    return true;
}

bool KVSyncClient::respondsTo(VDDownloadManagerObserverOperation operation) const {
    return operation == VDDownloadManagerObserverOperation::downloadStatesDidChange;
}

void KVSyncClient::setDelegate(std::shared_ptr<ORSyncClientDelegate> delegate) {
    _syncClientDelegate.store(std::move(delegate));
}

std::vector<std::string> KVSyncClient::supportedDataclasses() {
    return {std::string(KVDataClassMedia)};
}

void KVSyncClient::cancelSyncOperations() {
    const std::shared_ptr<platform::Semaphore> cancelled =
        platform::Platform::current().operatingSystem().makeSemaphore(0);
    KVMediaLibraryService::sharedMediaLibraryService().cancelImportOperation(
        KV3SourceHostData, [cancelled] { cancelled->signal(); });
    cancelled->wait();
}

void KVSyncClient::syncSessionCompletedWithError(const platform::OptionalError& error,
                                                 bool allAssetsTransferred) {
    KVLog(Debug, "syncSessionCompletedWithError:allAssetsTransferred:",
          "sync session completed. err=%@, allAssetsTransferred=%d", error, allAssetsTransferred);
}

// The centre holds no reference to the client: the handlers lock a weak one.
void KVSyncClient::_resumeObservingChangeNotifications() {
    _queue->async([client = shared_from_this()] {
        constexpr std::string_view operation = "_resumeObservingChangeNotifications";
        KVLog(Debug, operation, operation);
        const std::weak_ptr<KVSyncClient> weakClient = client;
        client->_notificationCenter->addObserver(
            client.get(), KV3KorvaneContentsDidChangeNotification, [weakClient] {
                if (const auto observer = weakClient.lock())
                    observer->_handleContentsChangedNotification();
            });
        client->_notificationCenter->addObserver(
            client.get(), KV3KorvaneDisplayValuesDidChangeNotification, [weakClient] {
                if (const auto observer = weakClient.lock())
                    observer->_handleDisplayValuesChangedNotification();
            });
    });
}

void KVSyncClient::_pauseObservingChangeNotifications() {
    _queue->async([client = shared_from_this()] {
        constexpr std::string_view operation = "_pauseObservingChangeNotifications";
        KVLog(Debug, operation, operation);
        client->_notificationCenter->removeObserver(client.get(),
                                                    KV3KorvaneContentsDidChangeNotification);
        client->_notificationCenter->removeObserver(client.get(),
                                                    KV3KorvaneDisplayValuesDidChangeNotification);
    });
}

void KVSyncClient::_handleContentsChangedNotification() {
    tellDelegateOfChanges(contentsPriority);
}

void KVSyncClient::_handleDisplayValuesChangedNotification() {
    tellDelegateOfChanges(displayValuesPriority);
}

void KVSyncClient::_handleSyncPrefsChangedNotification() {
    const auto delegate = _syncClientDelegate.load();
    if (!delegate)
        return;
    KVLog(Debug, "_handleSyncPrefsChangedNotification:", "sync prefs have changed. new values=%@",
          _getPlaylistSyncSettingsParams());
    delegate->syncClientHasChangesWithPriority(*this, syncPrefsPriority);
}

void KVSyncClient::tellDelegateOfChanges(std::int64_t priority) {
    if (const auto delegate = _syncClientDelegate.load())
        delegate->syncClientHasChangesWithPriority(*this, priority);
}

platform::Value KVSyncClient::_getPlaylistSyncSettingsParams() const {
    return {};
}

void KVSyncClient::_applyPlaylistSyncSettingsParams(const platform::Value&) {}
