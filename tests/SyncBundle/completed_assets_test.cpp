#include <cerrno>
#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string trackOperation = "_processCompletedTrackAsset:";
const std::string artworkOperation = "_processCompletedArtworkAsset:";
const std::string delivered = "/var/mobile/Media/Stagehold/in/1234.m4a";
const std::string music = "/var/mobile/Media/Tessel_Control/Music/";
const std::string staging = "/var/mobile/Media/Stagehold/Media/Artwork";
const std::string staged = staging + "/1234";
const Call displayValuesChanged{"KV3Korvane.notifyDisplayValuesPropertyDidChange", {}};

class CompletedAssets : public SyncClientTest {
protected:
    CompletedAssets() {
        library().tracks[1] = {{KV3TrackPropertySyncID, 1234}, {KV3TrackPropertyMediaType, 0x8}};
        files().addFile(delivered, {1, 2, 3});
    }
    std::shared_ptr<support::RecordingAsset> makeDelivered(const std::string& identifier,
                                                           std::uint64_t parts) {
        auto asset = makePulled(identifier, parts);
        asset->setPath(delivered);
        return asset;
    }
    void complete(const std::shared_ptr<ORAsset>& asset, const OptionalError& error = {}) {
        client();
        forget();
        client().assetSyncDidCompleteWithError(asset, error);
    }
    void complete(std::uint64_t parts) { complete(makeDelivered("1234", parts)); }
    // Where a track's file with that identifier comes to lie, below the music directory.
    std::string filedUnder(const std::string& identifier) {
        library().tracks[1][KV3TrackPropertySyncID] = Value(identifier).int64Value();
        files().addFile(delivered);
        complete(makeDelivered(identifier, 1));
        const Calls moves = recorder().callsNamed({"FileSystem.moveItem"});
        return moves.at(0).arguments.at(1).string()->substr(music.size());
    }
};

TEST_F(CompletedAssets, ATracksFileIsMovedAndRecordedInItsOrder) {
    complete(1);
    const std::string filed = music + "F34/1234.m4a";
    EXPECT_EQ(calls(), (Calls{{"FileSystem.createDirectory", {music + "F34"}},
                              {"FileSystem.removeItem", {filed}},
                              {"FileSystem.moveItem", {delivered, filed}},
                              {"KV3Korvane.performDatabaseTransaction", {}},
                              {"KV3Track.anyInLibrary", {"SyncID == 1234"}},
                              {"KV3Track.existsInLibrary", {1}},
                              {"KV3Track.populateLocationPropertiesWithPath", {1, filed}},
                              {"KV3Track.setValue", {1, false, "NeedsRestore"}},
                              {"KV3Korvane.commit", {}},
                              displayValuesChanged}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, trackOperation,
                                          "Setting location data for track: 1234")));
    EXPECT_TRUE(files().contains(filed));
    EXPECT_FALSE(files().contains(delivered));
}

TEST_F(CompletedAssets, TheFolderIsTheSyncIDsRemainderWithItsSign) {
    EXPECT_EQ(filedUnder("1234"), "F34/1234.m4a");
    EXPECT_EQ(filedUnder("50"), "F00/1234.m4a");
    EXPECT_EQ(filedUnder("7"), "F07/1234.m4a");
    EXPECT_EQ(filedUnder("-7"), "F-7/1234.m4a");
    EXPECT_EQ(filedUnder("-49"), "F-49/1234.m4a");
    EXPECT_EQ(filedUnder("9223372036854775807"), "F07/1234.m4a");
    EXPECT_EQ(filedUnder("-9223372036854775808"), "F-8/1234.m4a");
}

TEST_F(CompletedAssets, AFileAlreadyThereIsReplaced) {
    files().addFile(music + "F34/1234.m4a", {9});
    complete(1);
    EXPECT_EQ(files().readFile(music + "F34/1234.m4a", 10, nullptr), (Data{1, 2, 3}));
    EXPECT_TRUE(library().tracks[1][KV3TrackPropertyFilePath] == Value(music + "F34/1234.m4a"));
}

TEST_F(CompletedAssets, ATrackInTheCloudIsDetachedBeforeItsLocationIsRecorded) {
    library().tracks[1][KV3TrackPropertyBaseLocationID] = 400;
    inspector().cloudAssetBaseLocationID = 400;
    complete(1);
    EXPECT_EQ(
        recorder().callsNamed({"KV3Track.valueForProperty", "KV3Track.unlinkRedownloadableAssets",
                               "KV3Track.populateLocationPropertiesWithPath"}),
        (Calls{{"KV3Track.valueForProperty", {1, "BaseLocationID"}},
               {"KV3Track.unlinkRedownloadableAssets", {Array{1}}},
               {"KV3Track.populateLocationPropertiesWithPath", {1, music + "F34/1234.m4a"}}}));
}

TEST_F(CompletedAssets, WithoutACloudLocationOrElsewhereNothingIsDetached) {
    library().tracks[1][KV3TrackPropertyBaseLocationID] = 0;
    complete(1);
    EXPECT_EQ(recorder().callsNamed({"KV3Track.unlinkRedownloadableAssets"}), Calls{});
    inspector().cloudAssetBaseLocationID = 400;
    files().addFile(delivered);
    complete(1);
    EXPECT_EQ(recorder().callsNamed({"KV3Track.unlinkRedownloadableAssets"}), Calls{});
}

TEST_F(CompletedAssets, AFiledTrackNeedsNoRestoreAndIsNotListedAgain) {
    library().tracks[1][KV3TrackPropertyNeedsRestore] = 1;
    complete(1);
    EXPECT_EQ(library().tracks[1][KV3TrackPropertyNeedsRestore], Value(false));
    std::size_t listed = 1;
    client().assetsToSyncWithCompletion(
        [&](const auto&, const auto& assets) { listed = assets.size(); });
    EXPECT_EQ(listed, 0u);
}

TEST_F(CompletedAssets, AFolderThatCannotBeMadeStopsATrack) {
    client();
    recorder().failCall("FileSystem.createDirectory");
    complete(1);
    EXPECT_EQ(calls(),
              (Calls{{"FileSystem.createDirectory", {music + "F34"}}, displayValuesChanged}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, trackOperation,
                                          "failed to create asset dir " + music +
                                              "F34. error=" + Error::posix(EIO).description())));
    EXPECT_TRUE(files().contains(delivered));
}

TEST_F(CompletedAssets, AMoveThatFailsLeavesTheDatabaseAlone) {
    client();
    recorder().failCall("FileSystem.moveItem");
    complete(1);
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.performDatabaseTransaction"}), Calls{});
    EXPECT_EQ(calls().back(), displayValuesChanged);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Warning, trackOperation,
                                 "failed to move asset <ORAsset 1234> to " + music +
                                     "F34/1234.m4a. error=" + Error::posix(EIO).description())));
}

TEST_F(CompletedAssets, AFailedRemovalOfWhatIsThereIsIgnored) {
    client();
    recorder().failCall("FileSystem.removeItem");
    complete(1);
    EXPECT_TRUE(files().contains(music + "F34/1234.m4a"));
}

TEST_F(CompletedAssets, ADeliveredPathWithoutFileNameHarmsNoFolder) {
    files().addFile(music + "F34/other.m4a");
    for (const char* path : {"", "/", "/a/.", "/a/.."}) {
        const auto asset = makeDelivered("1234", 1);
        asset->setPath(path);
        complete(asset);
        EXPECT_EQ(recorder().callsNamed({"FileSystem.removeItem", "FileSystem.moveItem"}), Calls{});
        EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, trackOperation,
                                              "failed to move asset <ORAsset 1234> to (null). "
                                              "error=" +
                                                  Error::posix(EINVAL).description())));
    }
    complete(makePulled("1234", 1));
    EXPECT_EQ(recorder().callsNamed({"FileSystem.removeItem", "FileSystem.moveItem"}), Calls{});
    EXPECT_TRUE(files().contains(music + "F34/other.m4a"));
}

TEST_F(CompletedAssets, AFileWithoutTrackStaysWhereItWasMoved) {
    library().tracks.clear();
    complete(1);
    EXPECT_EQ(calls(), (Calls{{"FileSystem.createDirectory", {music + "F34"}},
                              {"FileSystem.removeItem", {music + "F34/1234.m4a"}},
                              {"FileSystem.moveItem", {delivered, music + "F34/1234.m4a"}},
                              {"KV3Korvane.performDatabaseTransaction", {}},
                              {"KV3Track.anyInLibrary", {"SyncID == 1234"}},
                              {"KV3Track.existsInLibrary", {0}},
                              {"KV3Korvane.rollback", {}},
                              displayValuesChanged}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Error, trackOperation,
                                 "Could not find track in database for asset: <ORAsset 1234>")));
    EXPECT_TRUE(files().contains(music + "F34/1234.m4a"));
}

TEST_F(CompletedAssets, AFailedTransferOnlyTellsOfDisplayValues) {
    for (const std::uint64_t parts : {0u, 1u, 2u, 3u, 4u}) {
        complete(makeDelivered("1234", parts), Error("ORError", 5));
        EXPECT_EQ(calls(), (Calls{displayValuesChanged}));
        EXPECT_THAT(lines(), IsEmpty());
    }
    EXPECT_TRUE(files().contains(delivered));
}

TEST_F(CompletedAssets, KenningDataIsDropped) {
    complete(4);
    EXPECT_EQ(calls(), (Calls{displayValuesChanged}));
    EXPECT_TRUE(files().contains(delivered));
}

TEST_F(CompletedAssets, AnAssetOfNoKnownKindIsAnAssertionFailure) {
    for (const std::uint64_t parts : {0u, 3u, 5u, 8u}) {
        try {
            complete(parts);
            ADD_FAILURE() << parts;
        } catch (const std::logic_error& failure) {
            EXPECT_EQ(failure.what(), "unexpected asset type " + std::to_string(parts));
        }
        EXPECT_EQ(calls(), Calls{});
    }
    EXPECT_THROW(complete(makeAsset("1234", false)), std::logic_error);
}

TEST_F(CompletedAssets, ProgressHasNoEffect) {
    client();
    client().assetSyncDidUpdateProgress(makeDelivered("1234", 1), 0.5);
    forget();
    client().assetSyncDidUpdateProgress(nullptr, 0.5);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(CompletedAssets, TheEndOfTheSyncEndsTheTransfersWithSuccess) {
    client();
    client().assetTransferEndedWithSuccess(true);
    const Calls expectedCalls = calls();
    const std::vector<LogLine> expectedLines = lines();
    forget();
    client().assetSyncDidComplete();
    // The end is told under a registration that exists by now.
    EXPECT_EQ(calls().back(), expectedCalls.back());
    EXPECT_EQ(lines(), expectedLines);
}

class CompletedArtwork : public CompletedAssets {
protected:
    CompletedArtwork() {
        library().tracks[1][KV3TrackPropertyCloudArtworkToken] = "cloud";
        stagehold().artworkDirectory = staging;
        stagehold().artworkPaths["1234"] = staged;
    }
    void addChapters(std::vector<std::string> cacheIDs) {
        library().tracks[1][KV3TrackPropertyChapterData] = Data{9};
        for (const std::string& id : cacheIDs) {
            if (id.empty())
                continue;
            stagehold().artworkPaths[id] = staging + "/" + id;
            files().addFile(staging + "/" + id);
        }
        media().chapterArtworkCacheIDs[Data{9}] = std::move(cacheIDs);
    }
    // The calls with which a picture is taken in.
    static Calls ingestion(const std::string& identifier, const std::string& token,
                           std::int64_t artworkType) {
        return {{"ORStagehold.artworkPath", {"Media", identifier}},
                {"KV3ArtworkRelativePathFromToken", {token}},
                {"KV3ArtworkHasOriginalArtwork", {"artwork/" + token}},
                {"FileSystem.attributes", {staging + "/" + identifier}},
                {"KV3Korvane.importOriginalArtwork",
                 {staging + "/" + identifier, token, artworkType, 1, 0x8}}};
    }
    static Calls joined(std::initializer_list<Calls> parts) {
        Calls all;
        for (const Calls& part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }
    Calls imports() { return recorder().callsNamed({"KV3Korvane.importOriginalArtwork"}); }
};

TEST_F(CompletedArtwork, ChaptersThenCoverAreTakenInInTheirOrder) {
    addChapters({"c1", "", "c2"});
    complete(2);
    EXPECT_EQ(calls(), joined({{{"ORStagehold.artworkPath", {"Media", Value()}},
                                {"FileSystem.fileExists", {staging}},
                                {"KV3Track.anyInLibrary", {"SyncID == 1234"}},
                                {"KV3Track.valueForProperty", {1, "ChapterData"}},
                                {"KV3Track.valueForProperty", {1, "MediaType"}},
                                {"KVTSChapterTOC.enumerateArtworkCacheIDs", {Data{9}}}},
                               ingestion("c1", "c1", 3),
                               ingestion("c2", "c2", 3),
                               {{"KV3Track.valueForProperty", {1, "CloudArtworkToken"}},
                                {"ORStagehold.artworkPath", {"Media", "1234"}},
                                {"FileSystem.moveItem", {delivered, staged}}},
                               ingestion("1234", "cloud", 1),
                               {displayValuesChanged}}));
}

TEST_F(CompletedArtwork, AMissingArtworkDirectoryIsMade) {
    complete(2);
    EXPECT_EQ(recorder().callsNamed({"FileSystem.createDirectory"}),
              (Calls{{"FileSystem.createDirectory", {staging}}}));
    EXPECT_EQ(imports().size(), 1u);
}

TEST_F(CompletedArtwork, ADirectoryThatCannotBeMadeIsNoErrorByItself) {
    files().addDirectory(staging);
    stagehold().artworkDirectory = "/var/mobile/Media/Stagehold/Media/Other";
    client();
    recorder().failCall("FileSystem.createDirectory");
    complete(2);
    EXPECT_EQ(imports().size(), 1u);
}

TEST_F(CompletedArtwork, TheFirstChapterThatFailsEndsTheArtworkButNotTheSnapshot) {
    addChapters({"c1", "c2", "c3"});
    stagehold().artworkPaths.erase("c2");
    library().needsVideoSnapshot[1] = true;
    const auto asset = makeDelivered("1234", 2);
    asset->setAssetType("HomeVideo");
    complete(asset);
    EXPECT_EQ(imports(), (Calls{ingestion("c1", "c1", 3).back()}));
    EXPECT_EQ(recorder().callsNamed({"FileSystem.moveItem"}), Calls{});
    EXPECT_TRUE(files().contains(delivered));
    EXPECT_EQ(recorder().callsNamed({"KV3Track.createVideoSnapshotAtTime"}),
              (Calls{{"KV3Track.createVideoSnapshotAtTime", {1, 105.0}}}));
    EXPECT_EQ(calls().back(), displayValuesChanged);
}

TEST_F(CompletedArtwork, ChapterDataThatIsNoDataHasNoChapters) {
    addChapters({"c1"});
    library().tracks[1][KV3TrackPropertyChapterData] = "text";
    complete(2);
    EXPECT_EQ(recorder().callsNamed({"KVTSChapterTOC.enumerateArtworkCacheIDs"}), Calls{});
    EXPECT_EQ(imports(), (Calls{ingestion("1234", "cloud", 1).back()}));
}

TEST_F(CompletedArtwork, ATrackWithoutTokenIsLoggedAndTheFileLeft) {
    library().tracks[1].erase(KV3TrackPropertyCloudArtworkToken);
    complete(2);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Warning, artworkOperation,
                                 "Got artwork for asset with no artwork token: <ORAsset 1234>")));
    EXPECT_TRUE(files().contains(delivered));
}

TEST_F(CompletedArtwork, ArtworkWithoutTrackIsLoggedAndTheFileLeft) {
    library().tracks.clear();
    complete(2);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Warning, artworkOperation,
                                 "Got artwork for asset with no artwork token: <ORAsset 1234>")));
    EXPECT_TRUE(files().contains(delivered));
    EXPECT_EQ(calls().back(), displayValuesChanged);
}

TEST_F(CompletedArtwork, ACoverThatCannotBeMovedIsLogged) {
    client();
    recorder().failCall("FileSystem.moveItem");
    complete(2);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, artworkOperation,
                                          "failed to move asset <ORAsset 1234> to " + staged +
                                              ". error=" + Error::posix(EIO).description())));
    EXPECT_EQ(imports(), Calls{});
}

TEST_F(CompletedArtwork, ACoverWithoutPlaceOrPathIsLogged) {
    stagehold().artworkPaths.clear();
    complete(2);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, artworkOperation,
                                          "failed to move asset <ORAsset 1234> to (null). error=" +
                                              Error::posix(EINVAL).description())));
    stagehold().artworkPaths["1234"] = staged;
    complete(makePulled("1234", 2));
    EXPECT_EQ(recorder().callsNamed({"FileSystem.moveItem"}), Calls{});
    EXPECT_EQ(imports(), Calls{});
}

TEST_F(CompletedArtwork, AnAssetWithoutTypeGetsNoSnapshot) {
    library().needsVideoSnapshot[1] = true;
    complete(2);
    EXPECT_EQ(recorder().callsNamed(
                  {"KV3Track.needsVideoSnapshot", "KV3Track.createVideoSnapshotAtTime"}),
              Calls{});
}

TEST_F(CompletedArtwork, ATrackThatNeedsNoSnapshotGetsNone) {
    const auto asset = makeDelivered("1234", 2);
    asset->setAssetType("TVEpisode");
    complete(asset);
    EXPECT_EQ(recorder().callsNamed(
                  {"KV3Track.needsVideoSnapshot", "KV3Track.createVideoSnapshotAtTime"}),
              (Calls{{"KV3Track.needsVideoSnapshot", {1}}}));
}

}  // namespace
}  // namespace sync_bundle_tests
