#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "assetsToSyncWithCompletion:";
const std::string artworkQuery =
    "SELECT DISTINCT(cloud_artwork_token), sync_id, media_type, title FROM item_artwork LEFT OUTER "
    "JOIN artwork ON cloud_artwork_token=artwork_token JOIN item_store USING (item_pid) JOIN item "
    "USING (item_pid) JOIN item_extra USING (item_pid) WHERE artwork_token IS NULL AND "
    "cloud_artwork_token != '' AND cloud_artwork_token=best_artwork_token GROUP BY "
    "cloud_artwork_token";

using Assets = std::vector<std::shared_ptr<support::RecordingAsset>>;

class AssetGathering : public SyncClientTest {
protected:
    Assets gather() {
        client();
        forget();
        Assets found;
        std::size_t answers = 0;
        client().assetsToSyncWithCompletion([&](const OptionalError& error, const auto& assets) {
            ++answers;
            EXPECT_EQ(error, std::nullopt);
            for (const auto& asset : assets)
                found.push_back(std::dynamic_pointer_cast<support::RecordingAsset>(asset));
        });
        EXPECT_EQ(answers, 1u);
        return found;
    }
    // A track without a file.
    TrackProperties& addTrack(std::int64_t persistentID, std::int64_t syncID) {
        TrackProperties& track = library().tracks[persistentID];
        track = {{KV3TrackPropertySyncID, syncID}, {KV3TrackPropertyBaseLocationID, 0}};
        return track;
    }
    void addArtwork(Value syncID, std::int64_t mediaType, Value title) {
        library().queryRows[artworkQuery].push_back({"token", syncID, mediaType, title});
    }
    static std::vector<std::string> identifiers(const Assets& assets) {
        std::vector<std::string> result;
        for (const auto& asset : assets)
            result.push_back(asset->identifier());
        return result;
    }
};

TEST_F(AssetGathering, TheDataClassIsMedia) {
    EXPECT_EQ(client().assetDataClass(), "Media");
}

TEST_F(AssetGathering, EverythingIsAskedForInItsOrder) {
    inspector().cloudAssetBaseLocationID = 400;
    addTrack(1, 11);
    addArtwork(12, 8, "Title");
    gather();
    EXPECT_EQ(
        calls(),
        (Calls{{"KV3ArtworkConfiguration.sizesToAutogenerate", {8, 1}},
               {"KV3Korvane.databaseConnectionAllowingWrites", {false}},
               {"KV3DatabaseConnection.executeQuery", {artworkQuery}},
               {"KV3QueryRow.int64ForColumnIndex", {1}},
               {"KV3QueryRow.intForColumnIndex", {2}},
               {"KV3QueryRow.stringForColumnIndex", {3}},
               {"KV3Track.queryWithLibrary",
                {"all(any(SyncID != 0, NeedsRestore == 1), any(BaseLocationID == 0, BaseLocationID "
                 "== 400))",
                 Array{}}},
               {"KV3TrackQuery.enumerate",
                {Array{"PodcastExternalGUID", "StoreAccountID", "StoreItemID", "StoreFlavor",
                       "StoreMatchedStatus", "StoreRedownloadedStatus", "StoreVeskaID", "SyncID",
                       "NeedsRestore", "IsRental", "Title"}}}}));
}

TEST_F(AssetGathering, WithNothingToSyncTheListIsEmptyAndTheCountsAreZeros) {
    EXPECT_TRUE(gather().empty());
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Debug, operation, "gathering assets to sync"),
                                     line(LogLevel::Debug, operation,
                                          "found 0 total assets; 0 tracks, 0 artwork, 0 kenning")));
}

TEST_F(AssetGathering, ArtworkIsListedBeforeTracksAndCountedAfterThem) {
    addTrack(1, 11);
    addTrack(2, 12);
    addArtwork(13, 8, "Title");
    EXPECT_THAT(identifiers(gather()), ElementsAre("13", "11", "12"));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Debug, operation, "gathering assets to sync"),
                                     line(LogLevel::Debug, operation,
                                          "found 3 total assets; 2 tracks, 1 artwork, 0 kenning")));
}

TEST_F(AssetGathering, ATracksAssetSaysWhatIsWanted) {
    addTrack(1, 11)[KV3TrackPropertyTitle] = "Title";
    const Assets assets = gather();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0]->identifier(), "11");
    EXPECT_EQ(assets[0]->dataclass, "Media");
    EXPECT_EQ(assets[0]->prettyName, "Title");
    EXPECT_EQ(assets[0]->variantOptions(), Value(Dictionary{{"AssetParts", 1u}}));
    EXPECT_EQ(assets[0]->variantOptions()["AssetParts"].type(), Value::Type::Unsigned);
    EXPECT_EQ(assets[0]->assetType(), std::nullopt);
    EXPECT_FALSE(assets[0]->isDownload());
    EXPECT_FALSE(assets[0]->isRestore());
    EXPECT_FALSE(assets[0]->bypassStore());
    EXPECT_EQ(assets[0]->storePID(), std::nullopt);
    EXPECT_EQ(assets[0]->storeInfo(), nullptr);
}

TEST_F(AssetGathering, ATrackToRestoreWithoutSyncIDIsNamedByItsPersistentID) {
    addTrack(-5, 0)[KV3TrackPropertyNeedsRestore] = 1;
    library().tracks[std::numeric_limits<std::int64_t>::max()] = {
        {KV3TrackPropertyNeedsRestore, 1}};
    const Assets assets = gather();
    EXPECT_THAT(identifiers(assets), ElementsAre("-5", "9223372036854775807"));
    EXPECT_TRUE(assets[0]->isRestore());
}

TEST_F(AssetGathering, ATrackWithoutTitleHasAnEmptyName) {
    addTrack(1, 11);
    EXPECT_EQ(gather().front()->prettyName, "");
}

TEST_F(AssetGathering, ATrackThatNobodyBroughtInIsNotListed) {
    addTrack(1, 0);
    EXPECT_TRUE(gather().empty());
}

TEST_F(AssetGathering, ATrackWithAFileIsNotListedEvenIfItNeedsRestore) {
    inspector().cloudAssetBaseLocationID = 400;
    addTrack(1, 11)[KV3TrackPropertyBaseLocationID] = support::RecordingLibrary::musicLocation;
    library().tracks[1][KV3TrackPropertyNeedsRestore] = 1;
    addTrack(2, 12)[KV3TrackPropertyBaseLocationID] = 400;
    EXPECT_THAT(identifiers(gather()), ElementsAre("12"));
}

TEST_F(AssetGathering, ARentalIsListedLikeAnyOther) {
    addTrack(1, 11)[KV3TrackPropertyIsRental] = 1;
    const Assets assets = gather();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0]->variantOptions(), Value(Dictionary{{"AssetParts", 1u}}));
    EXPECT_FALSE(assets[0]->isRestore());
}

TEST_F(AssetGathering, EachStoreValueAloneMakesAStoreInfo) {
    for (const KV3TrackProperty property :
         {KV3TrackPropertyPodcastExternalGUID, KV3TrackPropertyStoreAccountID,
          KV3TrackPropertyStoreItemID, KV3TrackPropertyStoreFlavor,
          KV3TrackPropertyStoreMatchedStatus, KV3TrackPropertyStoreRedownloadedStatus,
          KV3TrackPropertyStoreVeskaID}) {
        addTrack(1, 11)[property] = 0;
        EXPECT_NE(gather().front()->storeInfo(), nullptr) << property;
    }
}

TEST_F(AssetGathering, TheStoreInfosSettersAreCalledInTheirOrder) {
    TrackProperties& track = addTrack(1, 11);
    track[KV3TrackPropertyStoreAccountID] = 77;
    track[KV3TrackPropertyStoreItemID] = 1;
    track[KV3TrackPropertyStoreFlavor] = "2";
    track[KV3TrackPropertyStoreMatchedStatus] = 3;
    track[KV3TrackPropertyStoreRedownloadedStatus] = 4;
    track[KV3TrackPropertyStoreVeskaID] = 5;
    track[KV3TrackPropertyPodcastExternalGUID] = "6";
    library().accounts().names[77] = "someone";
    EXPECT_EQ(gather().front()->storeInfo()->calls(), (Calls{{"setDSID", {77}},
                                                             {"setVantorID", {"someone"}},
                                                             {"setFlavor", {"2"}},
                                                             {"setOrbisID", {1}},
                                                             {"setVeskaID", {5}},
                                                             {"setMatchStatus", {3}},
                                                             {"setRedownloadStatus", {4}},
                                                             {"setPodcastEpisodeGUID", {"6"}}}));
}

TEST_F(AssetGathering, APodcastGUIDAloneLeavesTheOtherStoreValuesAbsent) {
    addTrack(1, 11)[KV3TrackPropertyPodcastExternalGUID] = "guid";
    const Assets assets = gather();
    EXPECT_EQ(assets.front()->storeInfo()->calls(), (Calls{{"setDSID", {Value()}},
                                                           {"setVantorID", {Value()}},
                                                           {"setFlavor", {Value()}},
                                                           {"setOrbisID", {Value()}},
                                                           {"setVeskaID", {Value()}},
                                                           {"setMatchStatus", {Value()}},
                                                           {"setRedownloadStatus", {Value()}},
                                                           {"setPodcastEpisodeGUID", {"guid"}}}));
    EXPECT_EQ(recorder().callsNamed({"KV3AccountCacheDatabase.vantorIDForDSID"}),
              (Calls{{"KV3AccountCacheDatabase.vantorIDForDSID", {0}}}));
}

TEST_F(AssetGathering, AnArtworksAssetSaysWhatIsWanted) {
    media().artworkConfiguration().sizes = {{600, 500}};
    addArtwork(13, 8, "Title");
    const Assets assets = gather();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0]->identifier(), "13");
    EXPECT_EQ(assets[0]->dataclass, "Media");
    EXPECT_EQ(assets[0]->prettyName, "Title");
    EXPECT_EQ(assets[0]->variantOptions(),
              Value(Dictionary{{"AssetParts", 2u}, {"Dimensions", Array{600.0, 500.0}}}));
    EXPECT_EQ(assets[0]->variantOptions()["AssetParts"].type(), Value::Type::Unsigned);
    EXPECT_EQ((*assets[0]->variantOptions()["Dimensions"].array())[0].type(), Value::Type::Double);
    EXPECT_EQ(assets[0]->assetType(), std::nullopt);
    EXPECT_EQ(assets[0]->storeInfo(), nullptr);
    EXPECT_FALSE(assets[0]->isRestore());
}

TEST_F(AssetGathering, NullsInTheArtworkRowAreZeroAndEmpty) {
    addArtwork(Value(), 8, Value());
    const Assets assets = gather();
    ASSERT_EQ(assets.size(), 1u);
    EXPECT_EQ(assets[0]->identifier(), "0");
    EXPECT_EQ(assets[0]->prettyName, "");
}

TEST_F(AssetGathering, OnlyArtworkOfPlainMusicCarriesDimensions) {
    media().artworkConfiguration().sizes = {{600, 600}};
    for (const std::int64_t mediaType : {0x0, 0x2, 0x408, 0x800})
        addArtwork(mediaType, mediaType, "Title");
    const Assets assets = gather();
    ASSERT_EQ(assets.size(), 4u);
    for (const auto& asset : assets)
        EXPECT_EQ(asset->variantOptions(), Value(Dictionary{{"AssetParts", 2u}}));
}

TEST_F(AssetGathering, WithoutAPositiveSizeNoDimensionsAreSent) {
    const std::vector<std::vector<KV3ArtworkSize>> sizes{{}, {{0, 0}}, {{100, 0}}, {{0, 100}}};
    addArtwork(13, 8, "Title");
    for (const auto& configured : sizes) {
        KVSyncClientInspector::forgetArtworkSizeVariants();
        media().artworkConfiguration().sizes = configured;
        EXPECT_EQ(gather().front()->variantOptions(), Value(Dictionary{{"AssetParts", 2u}}));
    }
}

TEST_F(AssetGathering, ASizeThatIsLargerOneWayReplacesBothNumbers) {
    const auto largestOf = [this](std::vector<KV3ArtworkSize> sizes) {
        media().artworkConfiguration().sizes = std::move(sizes);
        const KV3ArtworkSize size = inspector().maxArtworkSize(0x800);
        return std::pair(size.width, size.height);
    };
    EXPECT_EQ(largestOf({{100, 400}, {300, 300}}), std::pair(300.0, 300.0));
    EXPECT_EQ(largestOf({{300, 300}, {100, 400}}), std::pair(100.0, 400.0));
    EXPECT_EQ(largestOf({{300, 300}, {300, 200}, {200, 300}}), std::pair(300.0, 300.0));
    EXPECT_EQ(largestOf({}), std::pair(0.0, 0.0));
    EXPECT_EQ(calls().front(), (Call{"KV3ArtworkConfiguration.sizesToAutogenerate", {0x800, 1}}));
}

TEST_F(AssetGathering, TheSizeIsFoundOutOncePerProcess) {
    media().artworkConfiguration().sizes = {{600, 600}};
    addArtwork(13, 8, "Title");
    const Value first = gather().front()->variantOptions();
    media().artworkConfiguration().sizes = {{900, 900}};
    releaseClient();
    EXPECT_EQ(gather().front()->variantOptions(), first);
    EXPECT_EQ(recorder().callsNamed({"KV3ArtworkConfiguration.sizesToAutogenerate"}), Calls{});
}

TEST_F(AssetGathering, AProcessWithoutASizeStaysWithoutOne) {
    EXPECT_EQ(inspector().artworkSizeVariant(8), Value());
    media().artworkConfiguration().sizes = {{900, 900}};
    EXPECT_EQ(inspector().artworkSizeVariant(8), Value());
}

TEST_F(AssetGathering, TheFirstCallKeepsMusicsSizeUnderTheMediaTypeAskedFor) {
    media().artworkConfiguration().sizes = {{600, 500}};
    EXPECT_EQ(inspector().artworkSizeVariant(0x800), Value(Array{600.0, 500.0}));
    EXPECT_EQ(inspector().artworkSizeVariant(8), Value());
    EXPECT_EQ(recorder().callsNamed({"KV3ArtworkConfiguration.sizesToAutogenerate"}),
              (Calls{{"KV3ArtworkConfiguration.sizesToAutogenerate", {8, 1}}}));
}

TEST_F(AssetGathering, AFailedQueryContributesNothing) {
    addTrack(1, 11);
    addArtwork(13, 8, "Title");
    client();
    recorder().failCall("KV3DatabaseConnection.executeQuery");
    EXPECT_THAT(identifiers(gather()), ElementsAre("11"));
}

}  // namespace
}  // namespace sync_bundle_tests
