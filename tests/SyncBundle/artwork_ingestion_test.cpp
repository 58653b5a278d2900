#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation =
    "_processArtworkIdentifier:artworkToken:artworkType:mediaType:sourceType:";
const std::string received = "/var/mobile/Media/Stagehold/Media/11.artwork";

class ArtworkIngestion : public SyncClientTest {
protected:
    ArtworkIngestion() {
        stagehold().artworkPaths["11"] = received;
        files().addFileOfSize(received, 1000);
    }
    bool process(const std::optional<std::string>& token = "token",
                 const std::string& identifier = "11") {
        client();
        forget();
        return inspector().processArtwork(identifier, token, 1, 0x8, 2);
    }
};

TEST_F(ArtworkIngestion, ANewFileIsImported) {
    EXPECT_TRUE(process());
    EXPECT_EQ(calls(),
              (Calls{{"ORStagehold.artworkPath", {"Media", "11"}},
                     {"KV3ArtworkRelativePathFromToken", {"token"}},
                     {"KV3ArtworkHasOriginalArtwork", {"artwork/token"}},
                     {"FileSystem.attributes", {received}},
                     {"KV3Korvane.importOriginalArtwork", {received, "token", 1, 2, 0x8}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, operation,
                                          "Inserted new artwork for token: token")));
    EXPECT_TRUE(files().contains(received));
}

TEST_F(ArtworkIngestion, WithoutAReceivedFileNothingElseIsAsked) {
    EXPECT_FALSE(process("", "12"));
    EXPECT_EQ(calls(), (Calls{{"ORStagehold.artworkPath", {"Media", "12"}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "Artwork (12) for asset had no path")));
}

TEST_F(ArtworkIngestion, AnEmptyOrAbsentTokenIsMalformedAndTheFileStays) {
    for (const std::optional<std::string>& token : {std::optional<std::string>(), {""}}) {
        EXPECT_FALSE(process(token));
        EXPECT_EQ(calls(), (Calls{{"ORStagehold.artworkPath", {"Media", "11"}}}));
        EXPECT_THAT(lines(),
                    ElementsAre(line(LogLevel::Error, operation,
                                     "Malformed artwork token on artwork asset with identifier: "
                                     "11")));
        EXPECT_TRUE(files().contains(received));
    }
}

TEST_F(ArtworkIngestion, ArtworkOnDiskOnlyHasItsDatabaseChecked) {
    media().tokensWithOriginalArtwork = {"token"};
    EXPECT_TRUE(process());
    EXPECT_EQ(calls(), (Calls{{"ORStagehold.artworkPath", {"Media", "11"}},
                              {"KV3ArtworkRelativePathFromToken", {"token"}},
                              {"KV3ArtworkHasOriginalArtwork", {"artwork/token"}},
                              {"KV3Korvane.importExistingOriginalArtwork", {"token", 1, 2, 0x8}}}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Info, operation,
                                 "Artwork already exists on disk, checking database consistency "
                                 "(artworkToken: token)")));
    EXPECT_TRUE(files().contains(received));
    library().artworkCanBeImported = false;
    EXPECT_FALSE(process());
}

TEST_F(ArtworkIngestion, AFileWithoutAttributesIsRefused) {
    client();
    recorder().failCall("FileSystem.attributes");
    EXPECT_FALSE(process());
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "Could not read file attributes for " + received +
                                              ": Error Domain=POSIXErrorDomain Code=5 "
                                              "\"Input/output error\"")));
}

TEST_F(ArtworkIngestion, AFileOfTenMebibytesIsImported) {
    files().addFileOfSize(received, 10'485'760);
    EXPECT_TRUE(process());
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.importOriginalArtwork"}).size(), 1u);
}

TEST_F(ArtworkIngestion, AFileOneByteLargerIsRefusedAndStays) {
    files().addFileOfSize(received, 10'485'761);
    EXPECT_FALSE(process());
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.importOriginalArtwork", "FileSystem.unlink"}),
              Calls{});
    EXPECT_TRUE(files().contains(received));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                          "Artwork file too big: 10485761 bytes. Discarding.")));
}

TEST_F(ArtworkIngestion, AFailedImportRemovesTheFileAndReturnsTrue) {
    library().artworkCanBeImported = false;
    files().addFile("/var/mobile/Media/Stagehold/Media/other");
    EXPECT_TRUE(process());
    EXPECT_EQ(calls(),
              (Calls{{"ORStagehold.artworkPath", {"Media", "11"}},
                     {"KV3ArtworkRelativePathFromToken", {"token"}},
                     {"KV3ArtworkHasOriginalArtwork", {"artwork/token"}},
                     {"FileSystem.attributes", {received}},
                     {"KV3Korvane.importOriginalArtwork", {received, "token", 1, 2, 0x8}},
                     {"FileSystem.subpathsOfDirectory", {"/var/mobile/Media/Stagehold/Media/"}},
                     {"FileSystem.unlink", {received}}}));
    EXPECT_FALSE(files().contains(received));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "Failed to insert new artwork for token: token"),
                                     line(LogLevel::Error, operation,
                                          "Stagehold contents (\n    11.artwork,\n    other\n)")));
}

TEST_F(ArtworkIngestion, AFileThatCannotBeRemovedIsLogged) {
    library().artworkCanBeImported = false;
    client();
    recorder().failCall("FileSystem.unlink");
    EXPECT_TRUE(process());
    EXPECT_EQ(lines().back(),
              line(LogLevel::Error, operation,
                   "Could not remove artwork file from " + received + ": Input/output error"));
}

}  // namespace
}  // namespace sync_bundle_tests
