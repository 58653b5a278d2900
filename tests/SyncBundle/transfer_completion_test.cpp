#include "SyncBundle/asset_transfer/transfer_errors.h"
#include "SyncBundle/asset_transfer/video_snapshots.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string transferOperation = "assetTransfer:succeeded:withError:";
const std::string deleteOperation = "_deleteTrackForFailedAsset:withError:action:";
const std::string endOperation = "assetTransferEndedWithSuccess:";
constexpr std::string_view currentNumber = "com.vantor.kvsync.currentAssetNumber";
constexpr std::string_view assetTotal = "com.vantor.kvsync.assetTotal";
const OptionalError unrecoverable = Error("ORError", 5);

TEST(RecoverableTransferError, OfTheDaemonsDomainOnlyTheListedCodes) {
    const std::set<std::int64_t> recoverable{4, 7, 8, 9, 14, 16, 18, 19, 20};
    for (std::int64_t code = -2; code <= 30; ++code)
        EXPECT_EQ(KVIsRecoverableTransferError(Error("ORError", code)), recoverable.contains(code))
            << code;
}

TEST(RecoverableTransferError, NeverOfTheFathomDomain) {
    EXPECT_FALSE(KVIsRecoverableTransferError(Error("FathomErrorDomain", 4)));
    EXPECT_FALSE(KVIsRecoverableTransferError(Error("FathomErrorDomain", 0)));
}

TEST(RecoverableTransferError, OfURLLoadingAllButAMissingFile) {
    EXPECT_FALSE(KVIsRecoverableTransferError(Error("URLErrorDomain", -1100)));
    EXPECT_TRUE(KVIsRecoverableTransferError(Error("URLErrorDomain", -1001)));
    EXPECT_TRUE(KVIsRecoverableTransferError(Error("URLErrorDomain", 1100)));
}

TEST(RecoverableTransferError, AnyOtherDomainAndNoErrorAtAll) {
    EXPECT_TRUE(KVIsRecoverableTransferError(Error("POSIXErrorDomain", -1100)));
    EXPECT_TRUE(KVIsRecoverableTransferError(Error("", 5)));
    EXPECT_TRUE(KVIsRecoverableTransferError(std::nullopt));
}

class TransferCompletion : public SyncClientTest {
protected:
    TransferCompletion() { library().tracks[1] = {{KV3TrackPropertySyncID, 11}}; }

    // Reports a transfer after forgetting what came before.
    void report(const std::shared_ptr<ORAsset>& asset, bool succeeded,
                const OptionalError& error = std::nullopt) {
        client();
        forget();
        client().assetTransferSucceeded(asset, succeeded, error);
    }
    static Call removal(std::int64_t persistentID) {
        return {"KV3Korvane.removeSource", {2, Array{persistentID}}};
    }
};

TEST_F(TransferCompletion, TheSnapshotTableKnowsEpisodesAndHomeVideos) {
    const auto asset = makeAsset("1", true);
    std::int64_t mediaType = -1;
    EXPECT_EQ(KVVideoSnapshotTimeForAsset(*asset, &mediaType), -1.0);
    asset->setAssetType("Movie");
    EXPECT_EQ(KVVideoSnapshotTimeForAsset(*asset, &mediaType), -1.0);
    EXPECT_EQ(mediaType, -1);
    asset->setAssetType("TVEpisode");
    EXPECT_EQ(KVVideoSnapshotTimeForAsset(*asset, &mediaType), 105.0);
    EXPECT_EQ(mediaType, 512);
    asset->setAssetType("HomeVideo");
    EXPECT_EQ(KVVideoSnapshotTimeForAsset(*asset, &mediaType), 105.0);
    EXPECT_EQ(mediaType, 8192);
    EXPECT_EQ(KVVideoSnapshotTimeForAsset(*asset, nullptr), 105.0);
}

TEST_F(TransferCompletion, OnlyMusicFilesMoveTheCurrentNumber) {
    const auto counted = makeDownload("1", 3);
    counted->setAssetType("Music");
    const auto artworkOnly = makeDownload("1", 2);
    artworkOnly->setAssetType("Music");
    const auto video = makeDownload("1", 1);
    video->setAssetType("MusicVideo");
    const auto untyped = makeDownload("1", 1);
    const auto upload = makeAsset("1", false);
    upload->setAssetType("Music");
    upload->setVariantOptions(Dictionary{{"AssetParts", 1}});
    inspector().currentAssetNumber = 1;
    for (const auto& asset : {counted, artworkOnly, video, untyped, upload})
        report(asset, false, std::nullopt);
    EXPECT_EQ(inspector().currentAssetNumber, 2u);
    report(counted, true);
    EXPECT_EQ(inspector().currentAssetNumber, 3u);
    EXPECT_EQ(system().namedNotifications().stateOf(currentNumber), 3u);
}

TEST_F(TransferCompletion, AFailedUploadOnlySetsTheFlag) {
    inspector().pendingUploads["11"] = makeAsset("11", false);
    report(inspector().pendingUploads["11"], false, unrecoverable);
    EXPECT_TRUE(inspector().hadUnsucessfulAssetTransfer);
    EXPECT_EQ(inspector().pendingUploads.size(), 1u);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TransferCompletion, AFailedArtworkOrKenningDownloadKeepsItsTrack) {
    for (const std::uint64_t parts : {2u, 4u, 6u}) {
        report(makeDownload("11", parts), false, unrecoverable);
        EXPECT_EQ(calls(), Calls{});
        EXPECT_THAT(lines(),
                    ElementsAre(line(LogLevel::Info, transferOperation,
                                     "Could not get artwork/kenning data, but keeping asset "
                                     "track: <ORAsset 11>")));
        EXPECT_TRUE(inspector().hadUnsucessfulAssetTransfer);
    }
}

TEST_F(TransferCompletion, AFailedDownloadWithoutPartsGoesTheWayOfTrackRemoval) {
    report(makeDownload("11", 0), false, unrecoverable);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Info, deleteOperation,
                                 "Asset (<ORAsset 11>) failed to transfer (Error Domain=ORError "
                                 "Code=5); error non-recoverable, but no file part, keeping "
                                 "track")));
    report(makeAsset("11", true), false, unrecoverable);
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(TransferCompletion, AnUnrecoverableErrorCostsTheTrackItsSyncSource) {
    report(makeDownload("11", 1), false, unrecoverable);
    EXPECT_EQ(calls(), (Calls{{"KV3Track.anyInLibrary", {"SyncID == 11"}},
                              {"KV3Track.existsInLibrary", {1}},
                              removal(1)}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Info, deleteOperation,
                                 "Asset (<ORAsset 11>) failed to transfer (Error Domain=ORError "
                                 "Code=5); removed track <KV3Track 1>")));
    EXPECT_TRUE(inspector().hadUnsucessfulAssetTransfer);
}

TEST_F(TransferCompletion, ARecoverableErrorKeepsTheTrack) {
    for (const OptionalError& error :
         {OptionalError(Error("ORError", 7)), OptionalError(Error("URLErrorDomain", -1001))}) {
        report(makeDownload("11", 1), false, error);
        EXPECT_EQ(calls(), Calls{});
        EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, deleteOperation,
                                              "Asset (<ORAsset 11>) failed to transfer (" +
                                                  error->description() +
                                                  "); error recoverable, keeping track")));
    }
}

TEST_F(TransferCompletion, AMissingFileAtItsURLCostsTheTrackItsSyncSource) {
    report(makeDownload("11", 1), false, Error("URLErrorDomain", -1100));
    EXPECT_EQ(calls().back(), removal(1));
}

TEST_F(TransferCompletion, ASourceThatCannotBeRemovedIsLogged) {
    client();
    recorder().failCall("KV3Korvane.removeSource");
    report(makeDownload("11", 1), false, unrecoverable);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Error, deleteOperation,
                                 "Asset (<ORAsset 11>) failed to transfer (Error Domain=ORError "
                                 "Code=5); could not remove track <KV3Track 1>")));
}

TEST_F(TransferCompletion, AFailedAssetWithoutTrackIsPassedOverSilently) {
    report(makeDownload("99", 1), false, unrecoverable);
    EXPECT_EQ(calls(), (Calls{{"KV3Track.anyInLibrary", {"SyncID == 99"}},
                              {"KV3Track.existsInLibrary", {0}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TransferCompletion, AFailedRestoreIsFoundByPersistentIdToo) {
    library().tracks[99] = {{KV3TrackPropertyNeedsRestore, 1}};
    const auto asset = makeDownload("99", 1);
    asset->setIsRestore(true);
    report(asset, false, unrecoverable);
    EXPECT_EQ(calls(), (Calls{{"KV3Track.anyInLibrary", {"SyncID == 99"}},
                              {"KV3Track.existsInLibrary", {0}},
                              {"KV3Track.newWithPersistentID", {99}},
                              {"KV3Track.existsInLibrary", {99}},
                              {"KV3Track.setValue", {99, false, "NeedsRestore"}},
                              removal(99)}));
}

TEST_F(TransferCompletion, AFailedRestoreWithoutTrackIsPassedOverSilently) {
    const auto asset = makeDownload("98", 1);
    asset->setIsRestore(true);
    report(asset, false, unrecoverable);
    EXPECT_EQ(calls().back(), (Call{"KV3Track.existsInLibrary", {98}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(TransferCompletion, AFailedRestoreFoundBySyncIdLosesItsMark) {
    const auto asset = makeDownload("11", 1);
    asset->setIsRestore(true);
    report(asset, false, unrecoverable);
    EXPECT_EQ(calls(), (Calls{{"KV3Track.anyInLibrary", {"SyncID == 11"}},
                              {"KV3Track.existsInLibrary", {1}},
                              {"KV3Track.setValue", {1, false, "NeedsRestore"}},
                              removal(1)}));
}

TEST_F(TransferCompletion, AnInstallFailureWithoutErrorIsRecoverableAndSetsTheFlag) {
    client().assetInstallFailed(makeDownload("11", 1), std::nullopt);
    EXPECT_TRUE(inspector().hadUnsucessfulAssetTransfer);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, deleteOperation,
                                          "Asset (<ORAsset 11>) failed to install ((null)); "
                                          "error recoverable, keeping track")));
}

TEST_F(TransferCompletion, AnUnrecoverableInstallFailureLeavesTheFlagAndRemovesTheSource) {
    client().assetInstallFailed(makeDownload("11", 1), unrecoverable);
    EXPECT_FALSE(inspector().hadUnsucessfulAssetTransfer);
    EXPECT_EQ(calls().back(), removal(1));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Info, deleteOperation,
                                 "Asset (<ORAsset 11>) failed to install (Error Domain=ORError "
                                 "Code=5); removed track <KV3Track 1>")));
}

TEST_F(TransferCompletion, AFinishedUploadIsNoLongerPending) {
    inspector().pendingUploads["11"] = makeAsset("11", false);
    inspector().pendingUploads["12"] = makeAsset("12", false);
    report(inspector().pendingUploads["11"], true);
    EXPECT_EQ(inspector().pendingUploads.count("11"), 0u);
    EXPECT_EQ(inspector().pendingUploads.count("12"), 1u);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, transferOperation,
                                          "Asset upload complete: <ORAsset 11>")));
}

TEST_F(TransferCompletion, AfterItsUploadATrackIsDeletedOnRequestBySyncId) {
    const auto asset = makeAsset("11", false);
    asset->setVariantOptions(Dictionary{{"delete_after_upload", true}});
    inspector().pendingUploads["11"] = asset;
    report(asset, true);
    EXPECT_EQ(calls(), (Calls{{"KV3Track.anyInLibrary", {"SyncID == 11"}},
                              {"KV3Track.deleteFromLibrary", {1}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, transferOperation,
                                          "Asset upload complete: <ORAsset 11>"),
                                     line(LogLevel::Info, transferOperation,
                                          "Deleted track after upload by host request: "
                                          "<KV3Track 1>")));
    EXPECT_TRUE(inspector().pendingUploads.empty());
    EXPECT_TRUE(library().tracks.empty());
}

TEST_F(TransferCompletion, ATrackThatCannotBeDeletedAfterItsUploadIsLogged) {
    const auto asset = makeAsset("1", false);  // the persistent id: no sync id equals it
    asset->setVariantOptions(Dictionary{{"delete_after_upload", true}});
    report(asset, true);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, transferOperation,
                                          "Asset upload complete: <ORAsset 1>"),
                                     line(LogLevel::Error, transferOperation,
                                          "Could not deleted track after upload by host request: "
                                          "<ORAsset 1>, <KV3Track 0>")));
    EXPECT_EQ(library().tracks.size(), 1u);
}

TEST_F(TransferCompletion, TheEndMakesItsCallsInTheirOrder) {
    inspector().autoCreatedSmartPlaylistsPIDs = {{31, 32}};
    inspector().currentAssetNumber = 17;
    client().assetTransferEndedWithSuccess(true);
    const Calls expected{
        {"NamedNotifications.registerCheck", {assetTotal}},
        {"NamedNotifications.setState", {assetTotal, 0}},
        {"NamedNotifications.post", {assetTotal}},
        {"KV3CreateIntegerUUID", {}},
        {"KV3Korvane.setSyncGenerationID", {4711}},
        {"KV3Korvane.performDatabaseTransaction", {}},
        {"KV3Container.populateDynamicContainers", {false}},
        {"KV3Korvane.commit", {}},
        {"KV3Korvane.removeTombstonesForDeletedItems", {}},
        {"KV3Container.deleteAutoCreatedBuiltInSmartPlaylists", {Array{31, 32}}},
        {"KV3Korvane.setValueForDatabaseProperty", {1, "createdBuiltInSmartPlaylists"}},
        {"KV3Korvane.reconnectToDatabase", {}},
        {"NamedNotifications.post",
         {KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification}},
    };
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(inspector().currentAssetNumber, 1u);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, endOperation,
                                 "Media asset transfer completed. success=1"),
                            line(LogLevel::Info, endOperation,
                                 "Updating smart playlists after asset transfer finished"),
                            line(LogLevel::Debug, endOperation,
                                 "Removing canned smart playlists: (\n    31,\n    32\n)")));
}

TEST_F(TransferCompletion, WithoutAutoCreatedSmartPlaylistsTheEndMarksThemDeleted) {
    for (const bool isEmptyList : {false, true}) {
        inspector().autoCreatedSmartPlaylistsPIDs.reset();
        if (isEmptyList)
            inspector().autoCreatedSmartPlaylistsPIDs.emplace();
        forget();
        client().assetTransferEndedWithSuccess(false);
        EXPECT_EQ(recorder().callsNamed({"KV3Korvane.setValueForDatabaseProperty",
                                         "KV3Container.deleteAutoCreatedBuiltInSmartPlaylists"}),
                  (Calls{{"KV3Korvane.setValueForDatabaseProperty",
                          {true, "autoCreatedSmartPlaylistsDeleted"}},
                         {"KV3Korvane.setValueForDatabaseProperty",
                          {1, "createdBuiltInSmartPlaylists"}}}));
        EXPECT_EQ(lines().front(),
                  line(LogLevel::Debug, endOperation, "Media asset transfer completed. success=0"));
    }
}

TEST_F(TransferCompletion, AFailureToFillTheSmartPlaylistsStillCommits) {
    client();
    recorder().failCall("KV3Container.populateDynamicContainers");
    client().assetTransferEndedWithSuccess(true);
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.commit"}).size(), 1u);
}

}  // namespace
}  // namespace sync_bundle_tests
