// Each operation once with every fallible call of the platform failing in turn: whatever fails, the
// operation comes back, and the background tasks are let go of where it promises that.
#include <functional>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string settingsDirectory = "/var/mobile/Media/Tessel_Control/Sync/Media/";
const std::string staging = "/var/mobile/Media/Stagehold/tmp/";
constexpr auto stopSuppressing = KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification;

// A platform with something for every operation to find.
class FurnishedPlatform : public support::RecordingPlatform {
public:
    FurnishedPlatform() {
        KVSyncClientInspector::forgetNotificationRegistrations();
        addTrackData();
        addFiles();
        mediaLibrary().autoCreatedSmartPlaylists = {31};
        mediaLibrary().chapterTimes[Data{9}] = {1.0};
        syncDaemon().stagehold().artworkPaths = {{"11", "/art"}, {"11-1000", "/chapter"}};
        syncDaemon().stagehold().kenningPaths = {{"55", "/kenning"}};
    }

private:
    void addTrackData() {
        library().tracks[1] = {
            {KV3TrackPropertySyncID, 11},           {KV3TrackPropertyMediaType, 0x8},
            {KV3TrackPropertyFilePath, "/a/b"},     {KV3TrackPropertyBaseLocationID, 0},
            {KV3TrackPropertyStoreAccountID, 77},   {KV3TrackPropertyGlobalID, 55},
            {KV3TrackPropertyNeedsRestore, 1},      {KV3TrackPropertyPendingKenningChecksum, 6},
            {KV3TrackPropertyChapterData, Data{9}}, {KV3TrackPropertySyncArtworkToken, "token"}};
        library().needsVideoSnapshot[1] = true;
        library().databaseProperties["KVSyncClientLastSyncedRevision"] = 3;
    }
    void addFiles() {
        const Value uploads = Dictionary{
            {"operations", Array{Dictionary{{"operation", "upload_track"}, {"pid", 1}},
                                 Dictionary{{"operation", "upload_track"}, {"pid", 11}}}}};
        support::MemoryFileSystem& files = operatingSystem().fileSystem();
        support::RecordingPropertyLists& lists = operatingSystem().propertyLists();
        files.addFile(settingsDirectory + "Sync_1.plist", lists.bytesFor(uploads));
        files.addFile("/kenning", lists.bytesFor(Dictionary{{"kenning_metadata", Data{1}},
                                                            {"kenning_similarities", Data{2}}}));
        files.addFile("/art", Data{1});
        files.addFile("/chapter", Data{1});
        files.addFile(staging + "Podcasts/a", Data{1});
        files.addFile("/var/mobile/Media/Podcasts/b", Data{1});
        files.addFile("/var/tmp/Media/c", Data{1});
    }
};

using Operation = std::function<void(FurnishedPlatform&, KVSyncClient&)>;

// Runs the operation on a fresh client until no fault is left to fire; `check` follows each run.
void sweep(const Operation& operation, const Operation& check = {}) {
    bool isDone = false;
    for (std::size_t nth = 1; !isDone; ++nth) {
        FurnishedPlatform platform;
        const auto client = KVSyncClient::init();
        platform.scheduler().runDueJobs();
        platform.recorder().failAnyCall(nth);
        SCOPED_TRACE("failing call " + std::to_string(nth));
        EXPECT_NO_THROW(operation(platform, *client));
        isDone = !platform.recorder().faultsLeft().empty();
        platform.recorder().failAnyCall(0);
        if (check)
            check(platform, *client);
        ASSERT_LT(nth, 200u);
    }
}

std::shared_ptr<support::RecordingAsset> received(FurnishedPlatform& platform, bool isRestore) {
    auto asset = std::make_shared<support::RecordingAsset>(platform.recorder(), "11", true);
    asset->setVariantOptions(Dictionary{{"AssetParts", 7}});
    asset->setAssetType("HomeVideo");
    asset->setPath("a.mp3");
    asset->setBypassStore(!isRestore);
    asset->setIsRestore(isRestore);
    return asset;
}

TEST(FailureSweep, Init) {
    for (std::size_t nth = 1; nth <= 2; ++nth) {
        FurnishedPlatform platform;
        platform.recorder().failAnyCall(nth);
        EXPECT_NE(KVSyncClient::init(), nullptr);
    }
}

TEST(FailureSweep, SyncAnchor) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        const std::string anchor = client.currentSyncAnchor();
        EXPECT_EQ(anchor, "0");
    });
}

TEST(FailureSweep, Preparation) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        EXPECT_TRUE(client.prepareForSyncWithHostAnchor("0", {}, 1, "", nullptr));
    });
}

TEST(FailureSweep, ReconcileAfterASuccessfulAndAFailedImport) {
    for (const std::uint32_t syncType : {0u, 1u, 2u}) {
        for (const bool fails : {false, true}) {
            sweep([&](FurnishedPlatform& platform, KVSyncClient& client) {
                if (fails)
                    platform.mediaLibrary().importService().error = Error("service", 1);
                platform.mediaLibrary().importService().success = !fails;
                OptionalError error;
                const bool succeeded = client.reconcileSync(syncType, "2", {}, &error);
                EXPECT_EQ(succeeded, error == std::nullopt);
            });
        }
    }
}

TEST(FailureSweep, OutstandingTransfers) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        const auto manager = platform.storeDownloads().lastManager();
        EXPECT_EQ(client.outstandingAssetTransfersWithDownloadManager(manager.get()).size(), 1u);
    });
}

TEST(FailureSweep, FilingADownload) {
    for (const bool isRestore : {false, true}) {
        for (const bool artworkIsRefused : {false, true}) {
            sweep(
                [&](FurnishedPlatform& platform, KVSyncClient& client) {
                    platform.library().artworkCanBeImported = !artworkIsRefused;
                    client.assetTransferSucceeded(received(platform, isRestore), true,
                                                  std::nullopt);
                },
                [](FurnishedPlatform& platform, KVSyncClient&) {
                    // Metadata and its mark on the tracks are there together or not at all.
                    const std::size_t statements = platform.library().committedStatements().size();
                    EXPECT_TRUE(statements == 0 || statements == 3) << statements;
                });
        }
    }
}

TEST(FailureSweep, FailedTransfersAndInstalls) {
    const Error unrecoverable("ORError", 5);
    for (const bool isRestore : {false, true}) {
        sweep([&](FurnishedPlatform& platform, KVSyncClient& client) {
            client.assetTransferSucceeded(received(platform, isRestore), false, unrecoverable);
            client.assetInstallFailed(received(platform, isRestore), unrecoverable);
        });
    }
}

TEST(FailureSweep, FinishedUploads) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        const auto asset =
            std::make_shared<support::RecordingAsset>(platform.recorder(), "11", false);
        asset->setVariantOptions(Dictionary{{"delete_after_upload", true}});
        client.assetTransferSucceeded(asset, true, std::nullopt);
    });
}

TEST(FailureSweep, TheEndOfTheTransfers) {
    sweep([](FurnishedPlatform&,
             KVSyncClient& client) { client.assetTransferEndedWithSuccess(true); },
          [](FurnishedPlatform& platform, KVSyncClient&) {
              EXPECT_EQ(platform.recorder().calls().back(),
                        (Call{"NamedNotifications.post", {stopSuppressing}}));
          });
}

TEST(FailureSweep, TheKenningConfiguration) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        client._processKenningConfigPlist(Dictionary{{"version", 1}});
    });
}

}  // namespace
}  // namespace sync_bundle_tests
