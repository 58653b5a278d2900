#include <limits>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "assetTransfer:succeeded:withError:";
const std::string reported = "Tessel_Control/Music/F01/ABCD.mp3";
const std::string filed = "/var/mobile/Media/Tessel_Control/Music/F01/ABCD.mp3";
const std::string kenningPath = "/var/mobile/Media/Stagehold/Media/k.plist";

class DownloadFiling : public SyncClientTest {
protected:
    DownloadFiling() {
        library().tracks[1] = {{KV3TrackPropertySyncID, 11}, {KV3TrackPropertyMediaType, 0x8}};
        files().addFile(filed);
    }
    std::shared_ptr<support::RecordingAsset> received(std::uint64_t parts) {
        auto asset = makeDownload("11", parts);
        asset->setPath(reported);
        asset->setBypassStore(true);
        return asset;
    }
    void file(const std::shared_ptr<ORAsset>& asset) {
        client();
        forget();
        client().assetTransferSucceeded(asset, true, std::nullopt);
    }
    // The calls with which every filing of an existing track begins and ends.
    static Calls filing(Calls between) {
        Calls all{
            {"KV3Korvane.performDatabaseTransaction", {}},
            {"ORStagehold.processCompletedAsset", {"<ORAsset 11>"}},
            {"ORAsset.setPath", {filed}},
            {"KV3Track.anyInLibrary", {"SyncID == 11"}},
            {"KV3Track.existsInLibrary", {1}},
        };
        all.insert(all.end(), between.begin(), between.end());
        all.push_back({"KV3Korvane.notifyDisplayValuesPropertyDidChange", {}});
        all.push_back({"KV3Korvane.commit", {}});
        return all;
    }
    static LogLine prepending() {
        return line(LogLevel::Debug, operation, "Prepending /var/mobile/Media to " + reported);
    }
    static Call artworkAskedFor(const std::string& identifier) {
        return {"ORStagehold.artworkPath", {"Media", identifier}};
    }
    static Call valuesRead(Array properties) {
        return {"KV3Track.getValues", {1, std::move(properties)}};
    }
};

TEST_F(DownloadFiling, AnAssetWithoutPathIsLogged) {
    file(makeDownload("11", 1));
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "Asset with no path: <ORAsset 11>")));
}

TEST_F(DownloadFiling, AMediaFileIsFiledUnderItsAbsolutePath) {
    const auto asset = received(1);
    file(asset);
    EXPECT_EQ(calls(),
              filing({{"KV3Track.populateLocationPropertiesWithPath", {1, filed}},
                      {"KV3Track.setValues",
                       {1, Array{false, Value()}, Array{"NeedsRestore", "DownloadIdentifier"}}}}));
    EXPECT_EQ(asset->path(), filed);
    EXPECT_THAT(lines(), ElementsAre(prepending(), line(LogLevel::Info, operation,
                                                        "Setting location data for track: 11")));
}

TEST_F(DownloadFiling, APathWithLeadingSlashesIsJoinedWithOne) {
    const auto asset = received(1);
    asset->setPath("//a//b/");
    file(asset);
    EXPECT_EQ(asset->path(), "/var/mobile/Media/a//b");
}

TEST_F(DownloadFiling, ATrackInTheCloudIsDetachedFromItFirst) {
    library().tracks[1][KV3TrackPropertyBaseLocationID] = 400;
    inspector().cloudAssetBaseLocationID = 400;
    file(received(1));
    EXPECT_EQ(calls(),
              filing({{"KV3Track.valueForProperty", {1, "BaseLocationID"}},
                      {"KV3Track.unlinkRedownloadableAssets", {Array{1}}},
                      {"KV3Track.populateLocationPropertiesWithPath", {1, filed}},
                      {"KV3Track.setValues",
                       {1, Array{false, Value()}, Array{"NeedsRestore", "DownloadIdentifier"}}}}));
}

TEST_F(DownloadFiling, ATrackElsewhereIsNotDetached) {
    library().tracks[1][KV3TrackPropertyBaseLocationID] = 200;
    inspector().cloudAssetBaseLocationID = 400;
    file(received(1));
    EXPECT_EQ(recorder().callsNamed({"KV3Track.unlinkRedownloadableAssets"}), Calls{});
}

TEST_F(DownloadFiling, WithoutACloudLocationATrackWithoutLocationIsNotDetached) {
    library().tracks[1][KV3TrackPropertyBaseLocationID] = 0;
    file(received(1));
    EXPECT_EQ(recorder().callsNamed({"KV3Track.unlinkRedownloadableAssets"}), Calls{});
}

TEST_F(DownloadFiling, ARestoredFileIsLeftToTheStagingArea) {
    const auto asset = received(1);
    asset->setBypassStore(false);
    asset->setIsRestore(true);
    file(asset);
    EXPECT_EQ(calls(), filing({}));
    EXPECT_EQ(asset->path(), filed);
}

TEST_F(DownloadFiling, AFileWithoutTrackIsRemovedAndTheTransactionAbandoned) {
    library().tracks.clear();
    file(received(7));
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.performDatabaseTransaction", {}},
                              {"ORStagehold.processCompletedAsset", {"<ORAsset 11>"}},
                              {"ORAsset.setPath", {filed}},
                              {"KV3Track.anyInLibrary", {"SyncID == 11"}},
                              {"KV3Track.existsInLibrary", {0}},
                              {"FileSystem.unlink", {filed}},
                              {"KV3Korvane.rollback", {}}}));
    EXPECT_FALSE(files().contains(filed));
    EXPECT_THAT(lines(),
                ElementsAre(prepending(), line(LogLevel::Error, operation,
                                               "Could not find track in database for asset: "
                                               "<ORAsset 11>")));
}

TEST_F(DownloadFiling, ArtworkIsProcessedWithTheTracksTokenAndType) {
    library().tracks[1][KV3TrackPropertySyncArtworkToken] = "token";
    stagehold().artworkPaths["11"] = "/art";
    files().addFile("/art", Data{1});
    file(received(2));
    EXPECT_EQ(calls(),
              filing({valuesRead({"ChapterData", "SyncArtworkToken", "MediaType"}),
                      artworkAskedFor("11"),
                      {"KV3ArtworkRelativePathFromToken", {"token"}},
                      {"KV3ArtworkHasOriginalArtwork", {"artwork/token"}},
                      {"FileSystem.attributes", {"/art"}},
                      {"KV3Korvane.importOriginalArtwork", {"/art", "token", 1, 2, 0x8}}}));
    EXPECT_EQ(lines().at(1),
              line(LogLevel::Info, operation, "Artwork for asset arrived: <ORAsset 11>"));
}

TEST_F(DownloadFiling, ChapterArtworkComesFirstUnderItsMilliseconds) {
    const Data chapters{9, 9};
    library().tracks[1][KV3TrackPropertyChapterData] = chapters;
    library().tracks[1][KV3TrackPropertySyncArtworkToken] = "token";
    media().chapterTimes[chapters] = {0.0, 12.3456};
    stagehold().artworkPaths["11-12346"] = "/chapter";
    files().addFile("/chapter", Data{1});
    file(received(2));
    EXPECT_EQ(
        calls(),
        filing({valuesRead({"ChapterData", "SyncArtworkToken", "MediaType"}),
                {"KVTSChapterTOC.enumerateChapterTimes", {chapters}},
                {"KV3ArtworkTokenForChapterArtwork", {1, 0.0}},
                artworkAskedFor("11-0"),
                {"KV3ArtworkTokenForChapterArtwork", {1, 12.3456}},
                artworkAskedFor("11-12346"),
                {"KV3ArtworkRelativePathFromToken", {"chapter-1-12.3456"}},
                {"KV3ArtworkHasOriginalArtwork", {"artwork/chapter-1-12.3456"}},
                {"FileSystem.attributes", {"/chapter"}},
                {"KV3Korvane.importOriginalArtwork", {"/chapter", "chapter-1-12.3456", 3, 2, 0x8}},
                artworkAskedFor("11")}));
}

TEST_F(DownloadFiling, ChapterTimesOfAnySizeHaveAnIdentifier) {
    const Data chapters{9};
    library().tracks[1][KV3TrackPropertyChapterData] = chapters;
    media().chapterTimes[chapters] = {-1.5, std::numeric_limits<double>::max(),
                                      std::numeric_limits<double>::infinity()};
    file(received(2));
    const Calls asked = recorder().callsNamed({"ORStagehold.artworkPath"});
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[0], artworkAskedFor("11--1500"));
    EXPECT_EQ(asked[1], artworkAskedFor("11-inf"));
}

TEST_F(DownloadFiling, ChapterDataThatIsNoByteBufferIsPassedOver) {
    library().tracks[1][KV3TrackPropertyChapterData] = "text";
    file(received(2));
    EXPECT_EQ(recorder().callsNamed({"KVTSChapterTOC.enumerateChapterTimes"}), Calls{});
}

TEST_F(DownloadFiling, ArtworkForATrackWithoutTokenIsLogged) {
    file(received(2));
    EXPECT_EQ(calls(), filing({valuesRead({"ChapterData", "SyncArtworkToken", "MediaType"})}));
    EXPECT_THAT(
        lines(),
        ElementsAre(prepending(),
                    line(LogLevel::Info, operation, "Artwork for asset arrived: <ORAsset 11>"),
                    line(LogLevel::Warning, operation,
                         "Got artwork for asset with no artwork token: <ORAsset 11>")));
}

TEST_F(DownloadFiling, AHomeVideoThatNeedsASnapshotGetsOneAtAHundredAndFiveSeconds) {
    for (const char* assetType : {"HomeVideo", "TVEpisode"}) {
        library().needsVideoSnapshot[1] = true;
        const auto asset = received(2);
        asset->setAssetType(assetType);
        file(asset);
        EXPECT_EQ(recorder().callsNamed({"KV3Track.createVideoSnapshotAtTime"}),
                  (Calls{{"KV3Track.createVideoSnapshotAtTime", {1, 105.0}}}));
        library().needsVideoSnapshot[1] = false;
        file(asset);
        EXPECT_EQ(recorder().callsNamed({"KV3Track.createVideoSnapshotAtTime"}), Calls{});
    }
}

TEST_F(DownloadFiling, AMovieNeverGetsASnapshot) {
    library().needsVideoSnapshot[1] = true;
    const auto asset = received(2);
    asset->setAssetType("Movie");
    file(asset);
    EXPECT_EQ(recorder().callsNamed(
                  {"KV3Track.createVideoSnapshotAtTime", "KV3Track.needsVideoSnapshot"}),
              Calls{});
}

TEST_F(DownloadFiling, AVideoFileWithoutArtworkPartGetsNoSnapshot) {
    library().needsVideoSnapshot[1] = true;
    const auto asset = received(1);
    asset->setAssetType("HomeVideo");
    file(asset);
    EXPECT_EQ(recorder().callsNamed({"KV3Track.needsVideoSnapshot"}), Calls{});
}

TEST_F(DownloadFiling, KenningDataIsStoredUnderTheGlobalIdWithThePendingChecksum) {
    library().tracks[1][KV3TrackPropertyGlobalID] = 55;
    library().tracks[1][KV3TrackPropertyPendingKenningChecksum] = 66;
    stagehold().kenningPaths["55"] = kenningPath;
    files().addFile(kenningPath, system().propertyLists().bytesFor(
                                     Dictionary{{"kenning_similarities", Data{1}}}));
    file(received(4));
    EXPECT_EQ(calls(),
              filing({valuesRead({"GlobalID", "PendingKenningChecksum"}),
                      {"ORStagehold.kenningPath", {"Media", "55"}},
                      {"FileSystem.openInputStream", {kenningPath}},
                      {"PropertyLists.parse", {"<stream " + kenningPath + ">"}},
                      {"FileSystem.unlink", {kenningPath}},
                      {"KV3Korvane.performDatabaseTransaction", {}},
                      {"KV3DatabaseConnection.executeUpdate",
                       {"INSERT OR REPLACE INTO kenning_similarities (kenning_id, data) VALUES "
                        "(?, ?);",
                        Array{55, Data{1}}}},
                      {"KV3Korvane.commit", {}}}));
}

TEST_F(DownloadFiling, ThePendingChecksumIsWrittenWithTheMetadata) {
    library().tracks[1][KV3TrackPropertyGlobalID] = -55;
    library().tracks[1][KV3TrackPropertyPendingKenningChecksum] = 66;
    stagehold().kenningPaths["-55"] = kenningPath;
    files().addFile(kenningPath,
                    system().propertyLists().bytesFor(Dictionary{{"kenning_metadata", Data{1}}}));
    file(received(4));
    ASSERT_EQ(library().committedStatements().size(), 2u);
    EXPECT_EQ(library().committedStatements()[1].arguments[1], Value(Array{66, -55}));
}

TEST_F(DownloadFiling, KenningDataWithoutGlobalIdIsLogged) {
    file(received(4));
    EXPECT_EQ(calls(), filing({valuesRead({"GlobalID", "PendingKenningChecksum"})}));
    EXPECT_THAT(lines(),
                ElementsAre(prepending(),
                            line(LogLevel::Warning, operation,
                                 "Got kenning data for asset with no kenning ID: <ORAsset 11>")));
}

TEST_F(DownloadFiling, KenningDataWithoutFileIsLogged) {
    library().tracks[1][KV3TrackPropertyGlobalID] = 55;
    file(received(4));
    EXPECT_THAT(lines(), ElementsAre(prepending(),
                                     line(LogLevel::Warning, operation,
                                          "Kenning data for asset had no path: <ORAsset 11>")));
}

TEST_F(DownloadFiling, AKenningFileThatHoldsNoDictionaryIsSkipped) {
    library().tracks[1][KV3TrackPropertyGlobalID] = 55;
    stagehold().kenningPaths["55"] = kenningPath;
    files().addFile(kenningPath, Data{1});
    file(received(4));
    EXPECT_EQ(recorder().callsNamed({"KV3DatabaseConnection.executeUpdate"}), Calls{});
    EXPECT_EQ(calls().back(), (Call{"KV3Korvane.commit", {}}));
}

TEST_F(DownloadFiling, FileArtworkAndKenningDataAreFiledInThisOrder) {
    library().tracks[1][KV3TrackPropertyGlobalID] = 55;
    file(received(7));
    EXPECT_EQ(calls(),
              filing({{"KV3Track.populateLocationPropertiesWithPath", {1, filed}},
                      {"KV3Track.setValues",
                       {1, Array{false, Value()}, Array{"NeedsRestore", "DownloadIdentifier"}}},
                      valuesRead({"ChapterData", "SyncArtworkToken", "MediaType"}),
                      valuesRead({"GlobalID", "PendingKenningChecksum"}),
                      {"ORStagehold.kenningPath", {"Media", "55"}}}));
}

}  // namespace
}  // namespace sync_bundle_tests
