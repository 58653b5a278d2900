#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "outstandingAssetTransfersWithDownloadManager:";
constexpr std::string_view assetTotal = "com.vantor.kvsync.assetTotal";
constexpr std::string_view currentNumber = "com.vantor.kvsync.currentAssetNumber";
constexpr std::int64_t cloudLocation = 400;

class OutstandingTransfers : public SyncClientTest {
protected:
    // A host-synced track with these bits, whose file is missing.
    TrackProperties& addTrack(std::int64_t persistentID, std::int64_t syncID,
                              std::uint32_t mediaType) {
        TrackProperties& track = library().tracks[persistentID];
        track = {{KV3TrackPropertySyncID, syncID},
                 {KV3TrackPropertyMediaType, mediaType},
                 {KV3TrackPropertyBaseLocationID, 0},
                 {KV3TrackPropertyNeedsRestore, 0},
                 {KV3TrackPropertyTitle, "track " + std::to_string(persistentID)}};
        return track;
    }
    // The same with its file on the device.
    TrackProperties& addTrackWithFile(std::int64_t persistentID, std::int64_t syncID,
                                      std::uint32_t mediaType) {
        TrackProperties& track = addTrack(persistentID, syncID, mediaType);
        track[KV3TrackPropertyBaseLocationID] = support::RecordingLibrary::musicLocation;
        return track;
    }
    using Assets = std::vector<std::shared_ptr<support::RecordingAsset>>;
    Assets transfers(VDDownloadManager* manager = nullptr) {
        inspector().cloudAssetBaseLocationID = cloudLocation;
        forget();
        Assets assets;
        for (const auto& asset : client().outstandingAssetTransfersWithDownloadManager(manager))
            assets.push_back(std::dynamic_pointer_cast<support::RecordingAsset>(asset));
        return assets;
    }
    static std::vector<std::string> identifiers(const Assets& assets) {
        std::vector<std::string> result;
        for (const auto& asset : assets)
            result.push_back(asset->identifier());
        return result;
    }
    static std::uint64_t parts(const support::RecordingAsset& asset) {
        return asset.variantOptions()["AssetParts"].unsignedValue();
    }
};

TEST_F(OutstandingTransfers, MakesItsCallsInTheirOrder) {
    addTrack(1, 11, 0x8)[KV3TrackPropertySyncArtworkToken] = "token";
    const auto manager = inspector().downloadManager;
    transfers(manager.get());
    const Calls expected{
        {"KV3Track.queryWithLibrary",
         {"any(all(StoreVeskaID == 0, SyncID != 0), NeedsRestore == 1)",
          Array{"AlbumArtistOrder", "AlbumOrder", "DiscNumber", "TrackNumber"}}},
        {"VDDownloadManager.downloads", {}},
        {"KV3TrackQuery.enumerate",
         {Array{"SyncArtworkToken", "BaseLocationID", "DownloadIdentifier", "MediaType", "GlobalID",
                "KenningChecksum", "PendingKenningChecksum", "PodcastExternalGUID",
                "StoreAccountID", "StoreItemID", "StoreFlavor", "StoreMatchedStatus",
                "StoreRedownloadedStatus", "StoreVeskaID", "SyncID", "NeedsRestore", "IsRental",
                "Title"}}},
        {"KV3ArtworkRelativePathFromToken", {"token"}},
        {"KV3ArtworkHasOriginalArtwork", {"artwork/token"}},
        {"NamedNotifications.registerCheck", {assetTotal}},
        {"NamedNotifications.setState", {assetTotal, 1}},
        {"NamedNotifications.post", {assetTotal}},
        {"NamedNotifications.registerCheck", {currentNumber}},
        {"NamedNotifications.setState", {currentNumber, 1}},
        {"NamedNotifications.post", {currentNumber}},
    };
    EXPECT_EQ(calls(), expected);
}

TEST_F(OutstandingTransfers, AnEmptyLibraryGivesNothingAndPostsTheTotals) {
    inspector().hadUnsucessfulAssetTransfer = true;
    inspector().currentAssetNumber = 9;
    EXPECT_THAT(transfers(), IsEmpty());
    EXPECT_FALSE(inspector().hadUnsucessfulAssetTransfer);
    EXPECT_EQ(inspector().currentAssetNumber, 1u);
    EXPECT_EQ(system().namedNotifications().stateOf(assetTotal), 0u);
    EXPECT_EQ(system().namedNotifications().stateOf(currentNumber), 1u);
    EXPECT_EQ(system().namedNotifications().postsOf(assetTotal), 1u);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, operation, "outstandingAssetTransfers = (\n)")));
}

TEST_F(OutstandingTransfers, ARecordHoldsWhatTheTrackLacks) {
    addTrack(1, 11, 0x8)[KV3TrackPropertySyncArtworkToken] = "token";
    const Assets assets = transfers();
    ASSERT_EQ(assets.size(), 1u);
    const support::RecordingAsset& asset = *assets.front();
    EXPECT_EQ(asset.identifier(), "11");
    EXPECT_EQ(asset.dataclass, "Media");
    EXPECT_EQ(asset.prettyName, "track 1");
    EXPECT_TRUE(asset.isDownload());
    EXPECT_EQ(asset.assetType(), "Music");
    EXPECT_EQ(asset.variantOptions(), Dictionary({{"AssetParts", 3u}}));
    EXPECT_FALSE(asset.isRestore());
    EXPECT_TRUE(asset.bypassStore());
    EXPECT_EQ(asset.storeInfo(), nullptr);
    EXPECT_EQ(asset.storePID(), std::nullopt);
    EXPECT_EQ(asset.path(), std::nullopt);
}

TEST_F(OutstandingTransfers, ATrackWithoutTitleHasAnEmptyPrettyName) {
    addTrack(1, 11, 0x8)[KV3TrackPropertyTitle] = Value();
    EXPECT_EQ(transfers().front()->prettyName, "");
}

TEST_F(OutstandingTransfers, ATrackToRestoreWithoutSyncIdGoesByItsPersistentId) {
    TrackProperties& track = addTrack(-7, 0, 0x8);
    track[KV3TrackPropertyNeedsRestore] = 1;
    track[KV3TrackPropertySyncArtworkToken] = "token";
    track[KV3TrackPropertyGlobalID] = 5;
    track[KV3TrackPropertyPendingKenningChecksum] = 6;
    const Assets assets = transfers();
    ASSERT_THAT(identifiers(assets), ElementsAre("-7"));
    EXPECT_EQ(parts(*assets.front()), 1u);
    EXPECT_TRUE(assets.front()->isRestore());
    EXPECT_FALSE(assets.front()->bypassStore());
    EXPECT_EQ(recorder().callsNamed({"KV3ArtworkHasOriginalArtwork"}), Calls{});
}

TEST_F(OutstandingTransfers, ACloudLocationIsLikeNone) {
    addTrack(1, 11, 0x8)[KV3TrackPropertyBaseLocationID] = cloudLocation;
    addTrack(2, 12, 0x8)[KV3TrackPropertyBaseLocationID] = Value();
    addTrackWithFile(3, 13, 0x8);
    const Assets assets = transfers();
    ASSERT_THAT(identifiers(assets), ElementsAre("11", "12"));
    EXPECT_EQ(parts(*assets[0]), 1u);
    EXPECT_EQ(parts(*assets[1]), 1u);
}

TEST_F(OutstandingTransfers, TracksThatTheCloudHoldsOrThatNobodySyncedAreNotAskedFor) {
    addTrack(1, 11, 0x8)[KV3TrackPropertyStoreVeskaID] = 99;
    addTrack(2, 0, 0x8);
    EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OutstandingTransfers, ACloudTrackToRestoreGetsItsFileOnly) {
    TrackProperties& track = addTrack(1, 11, 0x8);
    track[KV3TrackPropertyStoreVeskaID] = 99;
    track[KV3TrackPropertyNeedsRestore] = 1;
    track[KV3TrackPropertySyncArtworkToken] = "token";
    const Assets assets = transfers();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(parts(*assets.front()), 1u);
}

TEST_F(OutstandingTransfers, TracksOfAnAlbumAskForTheirArtworkOnce) {
    for (const std::int64_t id : {1, 2}) {
        TrackProperties& track = addTrackWithFile(id, 10 + id, 0x8);
        track[KV3TrackPropertySyncArtworkToken] = "album";
        track[KV3TrackPropertyTrackNumber] = 10 - id;  // the second comes first
    }
    const Assets assets = transfers();
    ASSERT_THAT(identifiers(assets), ElementsAre("12"));
    EXPECT_EQ(parts(*assets.front()), 2u);
}

TEST_F(OutstandingTransfers, ATrackThatLacksNothingHasNoRecord) {
    TrackProperties& track = addTrackWithFile(1, 11, 0x8);
    track[KV3TrackPropertySyncArtworkToken] = "token";
    track[KV3TrackPropertyGlobalID] = 5;
    track[KV3TrackPropertyKenningChecksum] = 6;
    track[KV3TrackPropertyPendingKenningChecksum] = 6;
    media().tokensWithOriginalArtwork = {"token"};
    EXPECT_THAT(transfers(), IsEmpty());
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Info, operation, "Already have artwork for for track 11"),
                    line(LogLevel::Info, operation, "Kenning already up-to-date: 6 vs. 6"),
                    line(LogLevel::Debug, operation, "outstandingAssetTransfers = (\n)")));
}

TEST_F(OutstandingTransfers, ATrackWithoutTokenGetsNoArtwork) {
    addTrackWithFile(1, 11, 0x8);
    EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OutstandingTransfers, ATrackWithoutPendingChecksumGetsNoKenningData) {
    TrackProperties& track = addTrackWithFile(1, 11, 0x8);
    track[KV3TrackPropertyGlobalID] = 5;
    track[KV3TrackPropertyKenningChecksum] = 6;
    EXPECT_THAT(transfers(), IsEmpty());
    EXPECT_THAT(lines(), testing::Contains(line(LogLevel::Info, operation,
                                                "Kenning already up-to-date: 6 vs. (null)")));
}

TEST_F(OutstandingTransfers, APendingChecksumWithoutCurrentOneAsksForKenningData) {
    TrackProperties& track = addTrackWithFile(1, 11, 0x400);
    track[KV3TrackPropertyGlobalID] = 5;
    track[KV3TrackPropertyPendingKenningChecksum] = 0;
    const Assets assets = transfers();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(parts(*assets.front()), 4u);
}

TEST_F(OutstandingTransfers, KenningDataOfAGlobalIdIsAskedForOnce) {
    for (const std::int64_t id : {1, 2, 3}) {
        TrackProperties& track = addTrackWithFile(id, 10 + id, 0x8);
        track[KV3TrackPropertyGlobalID] = 5;
        track[KV3TrackPropertyKenningChecksum] = id == 1 ? 7 : 6;  // the first is up to date
        track[KV3TrackPropertyPendingKenningChecksum] = 7;
        track[KV3TrackPropertyTrackNumber] = id;
    }
    const Assets assets = transfers();
    ASSERT_THAT(identifiers(assets), ElementsAre("12"));
    EXPECT_EQ(parts(*assets.front()), 4u);
}

TEST_F(OutstandingTransfers, OnlyMusicAndMusicVideosHaveKenningData) {
    for (const std::uint32_t mediaType : {0x2u, 0x4u, 0x20u, 0x100u, 0x200u, 0x800u, 0x2000u}) {
        TrackProperties& track = addTrackWithFile(mediaType, mediaType, mediaType);
        track[KV3TrackPropertyGlobalID] = mediaType;
        track[KV3TrackPropertyPendingKenningChecksum] = 7;
    }
    EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(OutstandingTransfers, WithCloudKenningDataNoRecordCarriesAny) {
    library().databaseProperties["KVPelorinHasCloudKenningData"] = true;
    TrackProperties& track = addTrack(1, 11, 0x8);
    track[KV3TrackPropertyGlobalID] = 5;
    track[KV3TrackPropertyPendingKenningChecksum] = 7;
    const Assets assets = transfers();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(parts(*assets.front()), 1u);
}

TEST_F(OutstandingTransfers, KindsComeInTheOrderInWhichTheHostSendsThem) {
    addTrack(1, 11, 0x2);
    addTrack(2, 12, 0x1000);
    addTrack(3, 13, 0x4);
    addTrack(4, 14, 0x200);
    addTrack(5, 15, 0x800);
    addTrack(6, 16, 0x8);
    addTrack(7, 17, 0x2000);
    addTrack(8, 18, 0x800)[KV3TrackPropertyIsRental] = 1;
    inspector().pendingUploads["up"] = makeAsset("up", false);
    EXPECT_THAT(identifiers(transfers()),
                ElementsAre("up", "18", "17", "16", "15", "14", "13", "12", "11"));
}

TEST_F(OutstandingTransfers, TheFirstKindThatHoldsDecides) {
    // Every bit of the later rows is set as well; all but the last pair stand in two rows.
    addTrack(1, 1, 0x8 | 0x800);     // music
    addTrack(2, 2, 0x800 | 0x2000);  // movie
    addTrack(3, 3, 0x2000 | 0x200);  // home video
    addTrack(4, 4, 0x200 | 0x4);     // TV episode
    addTrack(5, 5, 0x4 | 0x20);      // podcast
    addTrack(6, 6, 0x20 | 0x2);      // TesselU
    addTrack(7, 7, 0x2);             // audiobook
    addTrack(8, 8, 0x400);           // music video: music
    addTrack(9, 9, 0x100);           // video podcast: music
    EXPECT_THAT(identifiers(transfers()), ElementsAre("3", "1", "8", "9", "2", "4", "5", "6", "7"));
}

TEST_F(OutstandingTransfers, ARentalMusicVideoIsARental) {
    addTrack(1, 11, 0x8);
    addTrack(2, 12, 0x400)[KV3TrackPropertyIsRental] = 1;
    const Assets assets = transfers();
    EXPECT_THAT(identifiers(assets), ElementsAre("12", "11"));
    EXPECT_EQ(assets.front()->assetType(), "MusicVideo");
}

TEST_F(OutstandingTransfers, AMediaTypeOfZeroIsMusic) {
    addTrack(1, 11, 0x800);
    addTrack(2, 12, 0);
    const Assets assets = transfers();
    EXPECT_THAT(identifiers(assets), ElementsAre("12", "11"));
    EXPECT_EQ(assets.front()->assetType(), "Music");
}

TEST_F(OutstandingTransfers, WithinAKindTheLibrarysOrderHolds) {
    for (const std::int64_t id : {1, 2, 3, 4}) {
        TrackProperties& track = addTrack(id, 10 + id, 0x8);
        track[KV3TrackPropertyAlbumArtistOrder] = id == 4 ? 1 : 2;
        track[KV3TrackPropertyAlbumOrder] = id == 3 ? 1 : 2;
        track[KV3TrackPropertyDiscNumber] = id == 2 ? 1 : 2;
        track[KV3TrackPropertyTrackNumber] = 5 - id;
    }
    EXPECT_THAT(identifiers(transfers()), ElementsAre("14", "13", "12", "11"));
}

TEST_F(OutstandingTransfers, ATrackThatIsBeingUploadedIsNotAskedFor) {
    addTrack(1, 11, 0x8);
    inspector().pendingUploads["11"] = makeAsset("11", false);
    const Assets assets = transfers();
    ASSERT_THAT(identifiers(assets), ElementsAre("11"));
    EXPECT_FALSE(assets.front()->isDownload());
    EXPECT_EQ(inspector().pendingUploads.size(), 1u);
}

TEST_F(OutstandingTransfers, TheTotalCountsMusicFilesOnly) {
    addTrack(1, 11, 0x8);
    addTrack(2, 12, 0x8 | 0x400);
    addTrack(3, 13, 0x800);
    addTrack(4, 14, 0x4);
    addTrack(5, 15, 0);
    addTrackWithFile(6, 16, 0x8)[KV3TrackPropertySyncArtworkToken] = "token";
    addTrack(7, 17, 0x8)[KV3TrackPropertyIsRental] = 1;
    EXPECT_EQ(transfers().size(), 7u);
    EXPECT_EQ(system().namedNotifications().stateOf(assetTotal), 3u);
}

TEST_F(OutstandingTransfers, AMissingFileWithStoreValuesHasAStoreInfo) {
    TrackProperties& track = addTrack(1, 11, 0x8);
    track[KV3TrackPropertyStoreAccountID] = 77;
    track[KV3TrackPropertyStoreItemID] = 1;
    track[KV3TrackPropertyStoreFlavor] = "2";
    track[KV3TrackPropertyStoreMatchedStatus] = 3;
    track[KV3TrackPropertyStoreRedownloadedStatus] = 4;
    track[KV3TrackPropertyStoreVeskaID] = 0;
    track[KV3TrackPropertyPodcastExternalGUID] = "5";
    library().accounts().names[77] = "someone";
    const Assets assets = transfers();
    ASSERT_NE(assets.front()->storeInfo(), nullptr);
    EXPECT_EQ(assets.front()->storeInfo()->calls(), (Calls{{"setDSID", {77}},
                                                           {"setVantorID", {"someone"}},
                                                           {"setFlavor", {"2"}},
                                                           {"setOrbisID", {1}},
                                                           {"setVeskaID", {0}},
                                                           {"setMatchStatus", {3}},
                                                           {"setRedownloadStatus", {4}},
                                                           {"setPodcastEpisodeGUID", {"5"}}}));
}

TEST_F(OutstandingTransfers, AFileThatIsThereNeedsNoStoreInfo) {
    TrackProperties& track = addTrackWithFile(1, 11, 0x8);
    track[KV3TrackPropertyStoreAccountID] = 77;
    track[KV3TrackPropertySyncArtworkToken] = "token";
    EXPECT_EQ(transfers().front()->storeInfo(), nullptr);
}

TEST_F(OutstandingTransfers, ADownloadOfTheSameItemIsNamed) {
    addTrack(1, 11, 0x8);
    addTrack(2, 12, 0x8);
    support::RecordingDownloadManager manager(recorder());
    manager.scriptedDownloads = {std::make_shared<support::ScriptedDownload>(501, "11"),
                                 std::make_shared<support::ScriptedDownload>(502, "1")};
    const Assets assets = transfers(&manager);
    EXPECT_EQ(assets[0]->storePID(), 501);
    EXPECT_EQ(assets[1]->storePID(), std::nullopt);
}

TEST_F(OutstandingTransfers, DownloadsAreFoundByANonEmptyStringOnly) {
    support::RecordingDownloadManager manager(recorder());
    manager.scriptedDownloads = {std::make_shared<support::ScriptedDownload>(1, "a"),
                                 std::make_shared<support::ScriptedDownload>(2, ""),
                                 std::make_shared<support::ScriptedDownload>(3, 17),
                                 std::make_shared<support::ScriptedDownload>(4, Value()),
                                 std::make_shared<support::ScriptedDownload>(5, "a")};
    const auto found = inspector().existingTransfers(&manager);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found.at("a")->persistentIdentifier(), 5);
    EXPECT_TRUE(inspector().existingTransfers(nullptr).empty());
}

}  // namespace
}  // namespace sync_bundle_tests
