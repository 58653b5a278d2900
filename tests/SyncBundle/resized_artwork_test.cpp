// The data of artwork assets: as it is, and resized.
#include "tests/SyncBundle/asset_data_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "getDataForArtworkAsset:withCompletion:";
const std::string picture = "/var/mobile/Media/artwork/cover.jpg";
const std::string resized = "/var/mobile/Media/Stagehold/tmp/11";

class ArtworkData : public AssetDataTest {
protected:
    ArtworkData() {
        addTrack(11);
        library().itemArtworks[11] = picture;
        files().addFile(picture, {1, 2, 3});
        platform().artworkService().whileResizing =
            [this](const PXVArtworkServiceResizeRequest& request) {
                for (const auto& destination : request.destinations)
                    files().addFile(destination.path, {7, 8});
            };
    }
    std::shared_ptr<support::RecordingAsset> makeArtwork(Value dimensions) {
        auto asset = makeAsset("11", false);
        asset->setVariantOptions(
            Dictionary{{"AssetParts", 2u}, {"Dimensions", std::move(dimensions)}});
        return asset;
    }
    Calls resizeRequests() { return recorder().callsNamed({"PXVArtworkService.sendRequest"}); }
    static Call resizing(double width, double height) {
        return {"PXVArtworkService.sendRequest", {picture, Array{Array{width, height, resized}}}};
    }
};

TEST_F(ArtworkData, WithoutDimensionsTheSourceItselfIsServed) {
    ask(makePulled("11", 2));
    expectServed({1, 2, 3}, "cover.jpg");
    EXPECT_TRUE(answer().isOnQueue);
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.existsInLibrary", {11}},
                              {"KV3Korvane.fetchItemArtwork", {11}},
                              {"FileSystem.fileExists", {picture}},
                              {"FileSystem.openInputStream", {picture}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ArtworkData, DimensionsThatAreNotTwoNumbersAreNone) {
    for (const Value& dimensions :
         {Value(), Value(600), Value(Array{}), Value(Array{600}), Value(Array{1, 2, 3})}) {
        _answers.clear();
        ask(makeArtwork(dimensions));
        expectServed({1, 2, 3}, "cover.jpg");
        EXPECT_EQ(resizeRequests(), Calls{});
    }
}

TEST_F(ArtworkData, AnItemWithoutArtworkIsRefused) {
    library().itemArtworks.clear();
    ask(makePulled("11", 2));
    expectRefused();
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "no file for artwork asset <ORAsset 11>")));
}

TEST_F(ArtworkData, ArtworkWhoseFileIsMissingIsRefused) {
    files().unlink(picture);
    ask(makeArtwork(Array{600, 600}));
    expectRefused();
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "no file for artwork asset <ORAsset 11>")));
    EXPECT_EQ(resizeRequests(), Calls{});
}

TEST_F(ArtworkData, ArtworkOfAnUnknownTrackIsRefusedBeforeItIsLookedAt) {
    library().tracks.clear();
    ask(makeArtwork(Array{600, 600}));
    expectRefused();
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.fetchItemArtwork"}), Calls{});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, "getDataForAsset:withCompletion:",
                                          "no track for asset <ORAsset 11>")));
}

TEST_F(ArtworkData, FractionsOfTheDimensionsAreCutOff) {
    ask(makeArtwork(Array{600.7, 600.2}));
    EXPECT_EQ(resizeRequests(), (Calls{resizing(600, 600)}));
}

TEST_F(ArtworkData, WidthComesBeforeHeight) {
    ask(makeArtwork(Array{600, 500}));
    EXPECT_EQ(resizeRequests(), (Calls{resizing(600, 500)}));
}

TEST_F(ArtworkData, AResizedCopyIsServedUnderItsSourcesNameAndRemoved) {
    ask(makeArtwork(Array{600.0, 600.0}));
    expectServed({7, 8}, "cover.jpg");
    EXPECT_FALSE(answer().isOnQueue);
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.existsInLibrary", {11}},
                              {"KV3Korvane.fetchItemArtwork", {11}},
                              {"FileSystem.fileExists", {picture}},
                              resizing(600, 600),
                              {"FileSystem.readFile", {resized}},
                              {"FileSystem.removeItem", {resized}}}));
    EXPECT_FALSE(files().contains(resized));
    EXPECT_TRUE(files().contains(picture));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ArtworkData, TheCopyIsThereUntilTheHostHasItsAnswer) {
    bool isThere = false;
    client().getDataForAsset(makeArtwork(Array{600, 600}), [&](const auto&, auto, const auto&) {
        isThere = files().contains(resized);
    });
    scheduler().runDueJobs();
    EXPECT_TRUE(isThere);
    EXPECT_FALSE(files().contains(resized));
}

TEST_F(ArtworkData, TheServicesErrorIsPassedOnUnchanged) {
    const Error error("PXVArtworkService", 17, "no picture");
    platform().artworkService().error = error;
    ask(makeArtwork(Array{600, 600}));
    EXPECT_EQ(answer().error, error);
    EXPECT_EQ(answer().stream, std::nullopt);
    EXPECT_EQ(answer().name, std::nullopt);
    EXPECT_FALSE(answer().isOnQueue);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "failed to resize image. error=" + error.description())));
    EXPECT_EQ(recorder().callsNamed({"FileSystem.readFile", "FileSystem.removeItem"}), Calls{});
}

TEST_F(ArtworkData, ACopyThatCannotBeReadIsARefusal) {
    client();
    recorder().failCall("FileSystem.readFile");
    ask(makeArtwork(Array{600, 600}));
    expectRefused();
    EXPECT_FALSE(files().contains(resized));
}

TEST_F(ArtworkData, AnIdentifierLeadsTheCopyNowhereElse) {
    auto asset = makeAsset("11/../../../library.db", false);
    asset->setVariantOptions(Dictionary{{"AssetParts", 2u}, {"Dimensions", Array{1, 1}}});
    ask(asset);
    EXPECT_EQ(resizeRequests(), (Calls{resizing(1, 1)}));
}

TEST_F(ArtworkData, TheServiceMayAnswerAfterTheClientHasGone) {
    _queue = inspector().queue;
    client().getDataForAsset(makeArtwork(Array{600, 600}), handler());
    platform().artworkService().whileResizing =
        [this](const PXVArtworkServiceResizeRequest& request) {
            releaseClient();
            files().addFile(request.destinations.front().path, {7, 8});
        };
    scheduler().runDueJobs();
    expectServed({7, 8}, "cover.jpg");
}

}  // namespace
}  // namespace sync_bundle_tests
