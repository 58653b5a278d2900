#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "reconcileRestoreWithError:";
const std::string purchases = "/var/mobile/Media/Purchases";

const std::string restorable =
    "any(all(StoreItemID != 0, StoreAccountID != 0, BaseLocationID >= 300), "
    "any(MediaType & 260, IsTesselU == 1))";

class ReconcileRestore : public SyncClientTest {
protected:
    ReconcileRestore() {
        files().addFile(purchases + "/a.m4a");
        files().addFile(purchases + "/b.m4a");
    }
    bool reconcile(OptionalError* error = nullptr) {
        client();
        forget();
        return client().reconcileRestore(error);
    }
    // Bought, with a file that a store can give again.
    static TrackProperties bought() {
        return {{KV3TrackPropertyStoreItemID, 500},    {KV3TrackPropertyStoreAccountID, 77},
                {KV3TrackPropertyBaseLocationID, 300}, {KV3TrackPropertyNeedsRestore, 0},
                {KV3TrackPropertyMediaType, 0x8},      {KV3TrackPropertySyncArtworkToken, "cover"},
                {KV3TrackPropertyUserRating, 80}};
    }
    static Calls markingCalls(std::int64_t persistentID) {
        return {
            {"KV3Track.newWithPersistentID", {persistentID}},
            {"KV3Track.setValues",
             {persistentID, Array{true, 0, "", 0, "", "", "", "", 0, "", 0, 0, "", 0},
              Array{"NeedsRestore", "BaseLocationID", "LocationFileName", "DownloadIdentifier",
                    "CloudArtworkToken", "SyncArtworkToken", "PurchaseHistoryArtworkToken",
                    "StoreArtworkToken", "StoreVeskaID", "MatchRedownloadParameters",
                    "PurchaseHistoryID", "PurchaseHistoryToken",
                    "PurchaseHistoryRedownloadParameters", "SyncID"}}},
        };
    }
    // All of them, with those of the marked tracks.
    static Calls restoreCalls(const Calls& marking) {
        Calls all{
            {"KV3Korvane.performDatabaseTransaction", {}},
            {"KV3Track.queryWithLibrary", {restorable, Array{}}},
            {"KV3TrackQuery.enumerate", {Array{"SyncArtworkToken"}}},
        };
        all.insert(all.end(), marking.begin(), marking.end());
        const Calls rest{
            {"KV3Track.queryWithLibrary", {"NeedsRestore == 0", Array{}}},
            {"KV3TrackQuery.deleteAllEntities", {}},
            {"KV3DatabaseConnection.executeUpdate",
             {"UPDATE album SET representative_item_artwork_token = IFNULL( (SELECT "
              "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), "
              "'')"}},
            {"KV3DatabaseConnection.executeUpdate",
             {"UPDATE album_artist SET representative_item_artwork_token = IFNULL( (SELECT "
              "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), "
              "'')"}},
            {"KV3DatabaseConnection.executeUpdate",
             {"UPDATE item_artist SET artist_artwork_token = ''"}},
            {"KV3DatabaseConnection.executeUpdate",
             {"UPDATE album_artist SET artist_artwork_token = ''"}},
            {"KV3Korvane.deleteDatabaseProperty", {"KVCloudDatabaseRevision"}},
            {"KV3Korvane.deleteDatabaseProperty", {"KVPelorinDatabaseRevision"}},
            {"KV3Korvane.deleteDatabaseProperty", {"KVSyncClientLastSyncedRevision"}},
            {"KV3Korvane.deleteDatabaseProperty", {"KVSyncClientSyncAnchor"}},
            {"KV3Korvane.deleteOrphanedArtwork", {2}},
            {"KV3Korvane.commit", {}},
            {"OperatingSystem.makeSemaphore", {0}},
            {"WorkQueue.async", {"global.default"}},
            {"Semaphore.wait", {}},
            {"VDDownloadFileManifest.initWithManifestType", {0}},
            {"VDDownloadFileManifest.rebuild", {}},
            {"FileSystem.contentsOfDirectory", {purchases}},
            {"Semaphore.signal", {}},
        };
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    }
    static LogLine info(std::string message) {
        return line(LogLevel::Info, operation, std::move(message));
    }
    // In the order in which the file system lists them.
    LogLine rebuilt() { return info("Manifest rebuilt from (\n    b.m4a,\n    a.m4a\n)"); }
};

TEST_F(ReconcileRestore, WithoutRestorableTracksNothingIsMarkedAndAllElseRuns) {
    library().tracks[1] = {{KV3TrackPropertyMediaType, 0x8}, {KV3TrackPropertyNeedsRestore, 0}};
    library().tracks[2] = {{KV3TrackPropertyMediaType, 0x2}};
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(calls(), restoreCalls({}));
    EXPECT_TRUE(library().tracks.empty());
    EXPECT_EQ(library().committedStatements().size(), 4u);
    EXPECT_THAT(lines(), ElementsAre(info("Deleted unrestorable items from database"), rebuilt()));
}

TEST_F(ReconcileRestore, ARestorableTrackKeepsItsRowAndLosesWhatPointedAtItsFile) {
    library().tracks[4] = bought();
    library().tracks[4].insert({{KV3TrackPropertySyncID, 11},
                                {KV3TrackPropertyLocationFileName, "a.m4a"},
                                {KV3TrackPropertyDownloadIdentifier, "d"},
                                {KV3TrackPropertyCloudArtworkToken, "cloud"},
                                {KV3TrackPropertyStoreVeskaID, 5},
                                {KV3TrackPropertyPurchaseHistoryID, 6},
                                {KV3TrackPropertyPurchaseHistoryToken, 7}});
    library().tracks[5] = {{KV3TrackPropertyNeedsRestore, 0}};
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(calls(), restoreCalls(markingCalls(4)));
    EXPECT_EQ(library().tracks.size(), 1u);
    const TrackProperties expected{
        {KV3TrackPropertyStoreItemID, 500},
        {KV3TrackPropertyStoreAccountID, 77},
        {KV3TrackPropertyMediaType, 0x8},
        {KV3TrackPropertyUserRating, 80},
        {KV3TrackPropertyNeedsRestore, true},
        {KV3TrackPropertyBaseLocationID, 0},
        {KV3TrackPropertyLocationFileName, ""},
        {KV3TrackPropertyDownloadIdentifier, 0},
        {KV3TrackPropertyCloudArtworkToken, ""},
        {KV3TrackPropertySyncArtworkToken, ""},
        {KV3TrackPropertyPurchaseHistoryArtworkToken, ""},
        {KV3TrackPropertyStoreArtworkToken, ""},
        {KV3TrackPropertyStoreVeskaID, 0},
        {KV3TrackPropertyMatchRedownloadParameters, ""},
        {KV3TrackPropertyPurchaseHistoryID, 0},
        {KV3TrackPropertyPurchaseHistoryToken, 0},
        {KV3TrackPropertyPurchaseHistoryRedownloadParameters, ""},
        {KV3TrackPropertySyncID, 0},
    };
    EXPECT_EQ(library().tracks[4], expected);
    EXPECT_THAT(lines(),
                ElementsAre(info("Marking restored track as requiring redownload: <KV3Track 4>"),
                            info("Deleted unrestorable items from database"), rebuilt()));
}

TEST_F(ReconcileRestore, WhatCanBeFetchedAgainIsBoughtOrAPodcastOrTesselU) {
    const auto without = [](KV3TrackProperty property, Value value) {
        TrackProperties track = bought();
        track[property] = std::move(value);
        return track;
    };
    library().tracks[1] = without(KV3TrackPropertyStoreItemID, 0);
    library().tracks[2] = without(KV3TrackPropertyStoreAccountID, Value());
    library().tracks[3] = without(KV3TrackPropertyBaseLocationID, 299);
    library().tracks[4] = without(KV3TrackPropertyBaseLocationID, 400);
    library().tracks[5] = {{KV3TrackPropertyMediaType, 0x4}};
    library().tracks[6] = {{KV3TrackPropertyMediaType, 0x100}};
    library().tracks[7] = {{KV3TrackPropertyMediaType, 0x20}, {KV3TrackPropertyIsTesselU, 1}};
    library().tracks[8] = {{KV3TrackPropertyMediaType, 0x2}};
    EXPECT_TRUE(reconcile());
    std::vector<std::int64_t> left;
    for (const auto& [persistentID, properties] : library().tracks)
        left.push_back(persistentID);
    EXPECT_THAT(left, ElementsAre(4, 5, 6, 7));
}

TEST_F(ReconcileRestore, TracksThatWereMarkedBeforeStay) {
    library().tracks[1] = {{KV3TrackPropertyNeedsRestore, 1}, {KV3TrackPropertySyncID, 9}};
    EXPECT_TRUE(reconcile());
    ASSERT_EQ(library().tracks.size(), 1u);
    EXPECT_EQ(library().tracks[1][KV3TrackPropertySyncID], Value(9));
    EXPECT_EQ(calls(), restoreCalls({}));
}

TEST_F(ReconcileRestore, AfterwardsThereIsNoAnchorAndTheNextSyncIsTheFirst) {
    library().databaseProperties = {{"KVCloudDatabaseRevision", 1},
                                    {"KVPelorinDatabaseRevision", 2},
                                    {"KVSyncClientLastSyncedRevision", 3},
                                    {"KVSyncClientSyncAnchor", "4"},
                                    {"another", 5}};
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(library().databaseProperties.size(), 1u);
    EXPECT_EQ(client().currentSyncAnchor(), "0");
    log().clear();
    client().prepareForSyncWithHostAnchor("0", {}, 1, "", nullptr);
    EXPECT_EQ(lines().at(1).message, "Not saving out playlist data because this a first sync");
}

TEST_F(ReconcileRestore, AFailedRemovalIsLoggedAndTheRestRuns) {
    library().tracks[1] = {};
    recorder().failCall("KV3TrackQuery.deleteAllEntities");
    OptionalError error;
    EXPECT_TRUE(reconcile(&error));
    EXPECT_EQ(error, std::nullopt);
    EXPECT_EQ(calls(), restoreCalls({}));
    EXPECT_EQ(library().tracks.size(), 1u);
    EXPECT_EQ(library().committedStatements().size(), 4u);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "Failed to delete unrestoreable items from database"),
                                     rebuilt()));
}

TEST_F(ReconcileRestore, StatementsAndPropertiesThatFailAreNotAskedAbout) {
    for (const std::size_t nth : {1u, 2u, 3u, 4u}) {
        recorder().failCall("KV3DatabaseConnection.executeUpdate", nth);
        recorder().failCall("KV3Korvane.deleteDatabaseProperty", nth);
        EXPECT_TRUE(reconcile());
        EXPECT_EQ(calls(), restoreCalls({}));
    }
}

TEST_F(ReconcileRestore, ATrackThatCannotBeMarkedGoesWithTheOthers) {
    library().tracks[1] = bought();
    library().tracks[2] = bought();
    recorder().failCall("KV3Track.setValues");
    EXPECT_TRUE(reconcile());
    EXPECT_FALSE(library().tracks.contains(1));
    EXPECT_TRUE(library().tracks.contains(2));
}

TEST_F(ReconcileRestore, AFailedTransactionStillHasTheManifestRebuilt) {
    recorder().failCall("KV3Korvane.performDatabaseTransaction");
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(recorder().callsNamed({"VDDownloadFileManifest.rebuild"}).size(), 1u);
}

TEST_F(ReconcileRestore, WaitsForTheManifestHoweverLongItTakes) {
    platform().storeDownloads().manifestTime = 3600 * second;
    const platform::Nanoseconds before = scheduler().now();
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(scheduler().now() - before, 3600 * second);
}

TEST_F(ReconcileRestore, TheManifestIsRebuiltAfterTheCommit) {
    platform().storeDownloads().whileRebuilding = [this] {
        EXPECT_EQ(library().committedStatements().size(), 4u);
    };
    EXPECT_TRUE(reconcile());
}

TEST_F(ReconcileRestore, ThePurchasesAreListedOnlyForTheLog) {
    log().setHighestLevel(LogLevel::Notice);
    library().tracks[4] = bought();
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(recorder().callsNamed({"FileSystem.contentsOfDirectory"}), Calls{});
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ReconcileRestore, WithoutPurchasesTheListIsAbsent) {
    files().removeItem(purchases);
    EXPECT_TRUE(reconcile());
    EXPECT_EQ(lines().back(), info("Manifest rebuilt from (null)"));
}

TEST_F(ReconcileRestore, TheErrorSlotIsLeftAlone) {
    OptionalError error = Error("earlier", 1);
    EXPECT_TRUE(reconcile(&error));
    EXPECT_EQ(error, Error("earlier", 1));
}

TEST_F(ReconcileRestore, AnExceptionOfTheManifestReachesTheCallersThread) {
    platform().storeDownloads().makeFileManifestThrows = true;
    EXPECT_THROW(reconcile(), std::runtime_error);
}

}  // namespace
}  // namespace sync_bundle_tests
