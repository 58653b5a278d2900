#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

constexpr auto stopSuppressing = KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification;

class SyncClientLifecycle : public SyncClientTest {};

TEST_F(SyncClientLifecycle, InitMakesEverythingInItsOrder) {
    const auto client = KVSyncClient::init();
    const platform::Nanoseconds never = platform::Never;
    const Calls expected{
        {"OperatingSystem.makeSerialQueue", {"KVSyncClient"}},
        {"KV3Korvane.sharedLibrary", {}},
        {"KV3Korvane.valueForDatabaseProperty", {"KVPelorinHasCloudKenningData"}},
        {"NamedNotifications.post", {stopSuppressing}},
        {"WorkQueue.async", {"KVSyncClient"}},
        {"OperatingSystem.makeTimer", {"KVSyncClient"}},
        {"TimerSource.setEventHandler", {}},
        {"TimerSource.setTimer", {never, never, 1'000'000}},
        {"TimerSource.resume", {}},
        {"VDDownloadManagerOptions.setDownloadKinds",
         {Array{"audiobook", "movie", "music", "musicVideo", "televisionEpisode", "videoPodcast",
                "podcast"}}},
        {"VDDownloadManagerOptions.setPrefetchedDownloadProperties",
         {Array{"bundleIdentifier", "libraryItemIdentifier", "downloadPhase"}}},
        {"VDDownloadManager.initWithManagerOptions", {}},
        {"VDDownloadManager.addObserver", {}},
    };
    EXPECT_EQ(calls(), expected);
}

TEST_F(SyncClientLifecycle, AFreshClientHoldsItsDocumentedValues) {
    const auto fresh = inspector();
    EXPECT_EQ(fresh.library.get(), &library());
    EXPECT_TRUE(fresh.pendingUploads.empty());
    EXPECT_EQ(fresh.autoCreatedSmartPlaylistsPIDs, std::nullopt);
    EXPECT_EQ(fresh.syncStartRevision, 0);
    EXPECT_EQ(fresh.cloudAssetBaseLocationID, 0);
    EXPECT_FALSE(fresh.hasCloudKenningData);
    EXPECT_EQ(fresh.torvelID, 0u);
    EXPECT_FALSE(fresh.hadUnsucessfulAssetTransfer);
    EXPECT_EQ(fresh.currentAssetNumber, 0u);
    EXPECT_EQ(fresh.lastAssetNumberPostDate, std::nullopt);
    EXPECT_EQ(fresh.streams.size(), 0u);
    EXPECT_EQ(fresh.notificationCenter, &system().defaultNotificationCenter());
    EXPECT_EQ(fresh.syncClientDelegate.load(), nullptr);
    EXPECT_EQ(fresh.queue->label(), "KVSyncClient");
    EXPECT_TRUE(fresh.requestsByIdentifier.empty());
    EXPECT_NE(fresh.requestTimer, nullptr);
    EXPECT_EQ(fresh.downloadManager, platform().storeDownloads().lastManager());
    EXPECT_TRUE(fresh.wispSyncSettings.isNull());
}

TEST_F(SyncClientLifecycle, TheRequestTimerNeverFiresByItself) {
    client();
    scheduler().advance(365 * 24 * 3600 * second);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(SyncClientLifecycle, TheRequestTimersHandlerAdjustsTheRequestQueue) {
    const auto timer = inspector().requestTimer;
    timer->setTimer(scheduler().now() + second, platform::Never, 0);
    forget();
    scheduler().advance(second);
    const platform::Nanoseconds never = platform::Never;
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"TimerSource.setTimer", {never, never, 1'000'000}}}));
}

TEST_F(SyncClientLifecycle, WithoutThePropertyThereIsNoCloudKenningData) {
    EXPECT_FALSE(inspector().hasCloudKenningData);
}

TEST_F(SyncClientLifecycle, ThePropertysBooleanValueIsKept) {
    library().databaseProperties["KVPelorinHasCloudKenningData"] = true;
    EXPECT_TRUE(inspector().hasCloudKenningData);
}

TEST_F(SyncClientLifecycle, APropertyStoredAsNumberOrTextHasABooleanValueToo) {
    library().databaseProperties["KVPelorinHasCloudKenningData"] = 0;
    EXPECT_FALSE(KVSyncClientInspector(*KVSyncClient::init()).hasCloudKenningData);
    library().databaseProperties["KVPelorinHasCloudKenningData"] = "1";
    const auto client = KVSyncClient::init();
    EXPECT_TRUE(KVSyncClientInspector(*client).hasCloudKenningData);
}

TEST_F(SyncClientLifecycle, TheDataclassesAreExactlyMedia) {
    EXPECT_THAT(client().supportedDataclasses(), ElementsAre("Media"));
    EXPECT_THAT(client().supportedDataclasses(), ElementsAre("Media"));
}

TEST_F(SyncClientLifecycle, EveryNewClientLetsTheBackgroundTasksRun) {
    const auto first = KVSyncClient::init();
    const auto secondClient = KVSyncClient::init();
    EXPECT_EQ(system().namedNotifications().postsOf(stopSuppressing), 2u);
}

TEST_F(SyncClientLifecycle, TheDownloadManagerObservesTheClientWeakly) {
    client();
    const auto manager = platform().storeDownloads().lastManager();
    ASSERT_EQ(manager->observers().size(), 1u);
    EXPECT_EQ(manager->observers().front().lock().get(), &client());
    releaseClient();
    EXPECT_TRUE(manager->observers().front().expired());
}

TEST_F(SyncClientLifecycle, TeardownReconnectsTheDatabaseThenStopsObserving) {
    client();
    releaseClient();
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.reconnectToDatabase", {}},
                              {"NotificationCenter.removeObserver", {}}}));
    EXPECT_EQ(
        system().defaultNotificationCenter().observerCount(KV3KorvaneContentsDidChangeNotification),
        0u);
}

TEST_F(SyncClientLifecycle, AJobThatHoldsTheClientMayReleaseItLast) {
    client()._pauseObservingChangeNotifications();
    releaseClient();
    forget();
    scheduler().runDueJobs();
    EXPECT_EQ(
        calls(),
        (Calls{
            {"NotificationCenter.removeObserver", {KV3KorvaneContentsDidChangeNotification}},
            {"NotificationCenter.removeObserver", {KV3KorvaneDisplayValuesDidChangeNotification}},
            {"KV3Korvane.reconnectToDatabase", {}},
            {"NotificationCenter.removeObserver", {}}}));
}

TEST_F(SyncClientLifecycle, CancelReturnsOnlyAfterTheServicesAnswer) {
    media().importService().cancelTime = 90 * second;
    client();
    const platform::Nanoseconds before = scheduler().now();
    client().cancelSyncOperations();
    EXPECT_EQ(scheduler().now() - before, 90 * second);
    EXPECT_EQ(calls(), (Calls{{"OperatingSystem.makeSemaphore", {0}},
                              {"KVMediaLibraryService.cancelImportOperation", {6}},
                              {"Semaphore.wait", {}},
                              {"cancelled", {}},
                              {"Semaphore.signal", {}}}));
}

TEST_F(SyncClientLifecycle, TheEndOfASyncSessionIsOnlyLogged) {
    client().syncSessionCompletedWithError(std::nullopt, true);
    client().syncSessionCompletedWithError(Error("ORError", 5), false);
    const std::string operation = "syncSessionCompletedWithError:allAssetsTransferred:";
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, operation,
                                 "sync session completed. err=(null), allAssetsTransferred=1"),
                            line(LogLevel::Debug, operation,
                                 "sync session completed. err=Error Domain=ORError Code=5, "
                                 "allAssetsTransferred=0")));
    EXPECT_EQ(calls(), Calls{});
}

}  // namespace
}  // namespace sync_bundle_tests
