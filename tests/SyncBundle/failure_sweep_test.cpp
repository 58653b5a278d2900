// Each operation once with every fallible call of the platform failing in turn: whatever fails, the
// operation comes back, and the background tasks are let go of where it promises that.
#include <functional>

#include "tests/SyncBundle/sync_client_test.h"
#include "tests/support/recording_streams.h"

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
        KVSyncClientInspector::forgetArtworkSizeVariants();
        addTrackData();
        addPulledArtwork();
        addChanges();
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
    void addChanges() {
        library().changes[KV3RevisionTrackingCodeContainer] = {{31, 1, 0}, {32, 2, 1}};
        library().changes[KV3RevisionTrackingCodeTrack] = {{1, 3, 0}, {2, 4, 1}};
    }
    void addPulledArtwork() {
        library().tracks[1][KV3TrackPropertyCloudArtworkToken] = "cloud";
        library().itemArtworks[1] = "/art";
        mediaLibrary().chapterArtworkCacheIDs[Data{9}] = {"11-1000"};
        mediaLibrary().artworkConfiguration().sizes = {{600, 600}};
        syncDaemon().stagehold().artworkDirectory = "/stage";
        artworkService().whileResizing = [this](const PXVArtworkServiceResizeRequest& request) {
            for (const auto& destination : request.destinations)
                operatingSystem().fileSystem().addFile(destination.path, {1});
        };
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

TEST(FailureSweep, ReconcileAfterARestore) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        OptionalError error;
        EXPECT_TRUE(client.reconcileRestore(&error));
        EXPECT_EQ(error, std::nullopt);
        EXPECT_EQ(platform.recorder().callsNamed({"VDDownloadFileManifest.rebuild"}).size(), 1u);
    });
}

TEST(FailureSweep, Reports) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        std::vector<std::string> paths;
        client.pathsToBackup(&paths, nullptr);
        client.installedAssetMetrics();
        client.vantorIDsForAssets();
        client.disabledAssetTypes();
        client.clearSyncData();
    });
}

TEST(FailureSweep, AMetadataUpdate) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        client.metadataUpdate({{"title", "T"}}, received(platform, false), "2");
    });
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

TEST(FailureSweep, AnExportOfChanges) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        const auto stream =
            std::make_shared<support::RecordingOutputStream>(platform.recorder(), "daemon");
        stream->open();
        int starts = 0;
        int completions = 0;
        client.getChangesForSyncType(
            1, 1, 0, 10, {}, stream, [&](const Dictionary&) { ++starts; },
            [](std::uint64_t, std::uint64_t) {}, [&](const OptionalError&) { ++completions; });
        platform.scheduler().runDueJobs();
        EXPECT_EQ(completions, 1);
        EXPECT_TRUE(starts == 1 || stream->bytes().empty());
        EXPECT_EQ(KVSyncClientInspector(client).streams.size(), 0u);
    });
}

TEST(FailureSweep, AnImportOfChanges) {
    sweep([](FurnishedPlatform& platform, KVSyncClient& client) {
        int completions = 0;
        client.applyChangesForSyncType(
            1, 1, platform.operatingSystem().fileSystem().makeInputStream(Data{1, 2, 3}),
            {{"PlaylistDataLen", 1}}, [](std::uint64_t, std::uint64_t) {},
            [&](const OptionalError&, std::int64_t) { ++completions; });
        platform.scheduler().runDueJobs();
        EXPECT_EQ(completions, 1);
        EXPECT_EQ(KVSyncClientInspector(client).streams.size(), 0u);
    });
}

TEST(FailureSweep, AResetOfChangeSync) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        int completions = 0;
        client.resetSyncDataWithCompletion([&](const OptionalError&) { ++completions; });
        EXPECT_EQ(completions, 1);
    });
}

TEST(FailureSweep, GatheringAssets) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) {
        int answers = 0;
        client.assetsToSyncWithCompletion([&](const OptionalError& error, const auto&) {
            ++answers;
            EXPECT_EQ(error, std::nullopt);
        });
        EXPECT_EQ(answers, 1);
    });
}

TEST(FailureSweep, TheDataOfAssets) {
    for (const std::uint64_t parts : {1u, 2u, 4u}) {
        for (const bool isOnDisk : {false, true}) {
            sweep([&](FurnishedPlatform& platform, KVSyncClient& client) {
                if (isOnDisk)
                    platform.operatingSystem().fileSystem().addFile("/a/b");
                const auto manager = platform.storeDownloads().lastManager();
                const auto download = std::make_shared<support::ScriptedDownload>(501, "1");
                download->phase = VDDownloadPhaseInstalling;
                manager->scriptedDownloads = {download};
                const auto asset =
                    std::make_shared<support::RecordingAsset>(platform.recorder(), "1", false);
                asset->setVariantOptions(
                    Dictionary{{"AssetParts", parts}, {"Dimensions", Array{600, 600}}});
                int answers = 0;
                client.getDataForAsset(asset, [&](const OptionalError& error, auto stream,
                                                  const std::optional<std::string>& name) {
                    ++answers;
                    EXPECT_NE(error.has_value(), stream != nullptr);
                    EXPECT_EQ(stream != nullptr, name.has_value());
                });
                platform.scheduler().runDueJobs();
                client.downloadManagerDownloadStatesDidChange(*manager, {download});
                platform.scheduler().advance(60 * second);
                EXPECT_EQ(answers, 1);
            });
        }
    }
}

TEST(FailureSweep, CompletedAssets) {
    for (const std::uint64_t parts : {1u, 2u, 4u}) {
        sweep(
            [&](FurnishedPlatform& platform, KVSyncClient& client) {
                platform.operatingSystem().fileSystem().addFile("/in/11.m4a");
                platform.syncDaemon().stagehold().artworkPaths["11"] = "/in/art";
                const auto asset =
                    std::make_shared<support::RecordingAsset>(platform.recorder(), "11", false);
                asset->setVariantOptions(Dictionary{{"AssetParts", parts}});
                asset->setAssetType("HomeVideo");
                asset->setPath("/in/11.m4a");
                client.assetSyncDidCompleteWithError(asset, std::nullopt);
            },
            [](FurnishedPlatform& platform, KVSyncClient&) {
                EXPECT_EQ(platform.recorder().calls().back().name,
                          "KV3Korvane.notifyDisplayValuesPropertyDidChange");
            });
    }
}

TEST(FailureSweep, TheEndOfTheAssetSync) {
    sweep([](FurnishedPlatform&, KVSyncClient& client) { client.assetSyncDidComplete(); },
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
