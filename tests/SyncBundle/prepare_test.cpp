#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation =
    "prepareForSyncWithHostAnchor:progressCallback:torvelID:hostVersion:error:";
const std::string settingsDirectory = "/var/mobile/Media/Tessel_Control/Sync/Media/";
const std::string baseLocationQuery =
    "SELECT base_location_id from base_location where path = 'CloudAssets'";

class Prepare : public SyncClientTest {
protected:
    bool prepare(std::uint32_t torvelID = 9) {
        client();
        OptionalError error;
        const bool result = client().prepareForSyncWithHostAnchor(
            "host anchor", [](double) { ADD_FAILURE() << "progress is not reported"; }, torvelID,
            "1.0", &error);
        EXPECT_EQ(error, std::nullopt);
        return result;
    }
};

TEST_F(Prepare, MakesItsCallsInTheirOrder) {
    library().revision = 123;
    library().databaseProperties["KVSyncClientLastSyncedRevision"] = 100;
    library().queryResults[baseLocationQuery] = 400;
    files().addFile(settingsDirectory + "Sync_1.plist");
    files().addFile(settingsDirectory + "Sync_2.plist");
    files().addFile("/var/tmp/Media/left/over");
    EXPECT_TRUE(prepare());
    const Calls expected{
        {"NamedNotifications.post", {KV3KorvaneBackgroundTasksShouldSuppressChangesNotification}},
        {"KV3Korvane.performReadOnlyDatabaseTransaction", {}},
        {"KV3Korvane.currentRevision", {}},
        {"KV3Korvane.valueForDatabaseProperty", {"KVSyncClientLastSyncedRevision"}},
        {"KV3DatabaseConnection.executeQuery", {baseLocationQuery}},
        {"KV3Korvane.saveTrackMetadata", {100, 9}},
        {"KV3Korvane.savePlaylists", {100, 9}},
        {"KV3Korvane.commit", {}},
        {"FileSystem.contentsOfDirectory", {settingsDirectory}},
        {"FileSystem.unlink", {settingsDirectory + "Sync_1.plist"}},
        {"FileSystem.unlink", {settingsDirectory + "Sync_2.plist"}},
        {"FileSystem.removeItem", {"/var/tmp/Media/"}},
        {"FileSystem.createDirectory", {"/var/tmp/Media/"}},
    };
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(inspector().torvelID, 9u);
    EXPECT_EQ(inspector().syncStartRevision, 123);
    EXPECT_EQ(inspector().cloudAssetBaseLocationID, 400);
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Info, operation, "Saving out track metadata since revision 100"),
                    line(LogLevel::Info, operation, "Saving out playlist data since revision 100"),
                    line(LogLevel::Debug, operation, "Prepared!")));
}

TEST_F(Prepare, OfALibraryNeverSyncedSavesAllTracksAndNoPlaylists) {
    files().addDirectory(settingsDirectory);
    EXPECT_TRUE(prepare(0xFFFFFFFF));
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.saveTrackMetadata", "KV3Korvane.savePlaylists"}),
              (Calls{{"KV3Korvane.saveTrackMetadata", {0, 0xFFFFFFFF}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, operation,
                                          "Saving out track metadata since revision 0"),
                                     line(LogLevel::Info, operation,
                                          "Not saving out playlist data because this a first sync"),
                                     line(LogLevel::Debug, operation, "Prepared!")));
}

TEST_F(Prepare, ReadsARevisionStoredAsText) {
    library().databaseProperties["KVSyncClientLastSyncedRevision"] = "41";
    files().addDirectory(settingsDirectory);
    EXPECT_TRUE(prepare());
    EXPECT_EQ(
        recorder().callsNamed({"KV3Korvane.saveTrackMetadata", "KV3Korvane.savePlaylists"}),
        (Calls{{"KV3Korvane.saveTrackMetadata", {41, 9}}, {"KV3Korvane.savePlaylists", {41, 9}}}));
}

TEST_F(Prepare, WithoutACloudLocationItsIdIsZero) {
    inspector().cloudAssetBaseLocationID = 400;
    EXPECT_TRUE(prepare());
    EXPECT_EQ(inspector().cloudAssetBaseLocationID, 0);
}

TEST_F(Prepare, WithoutSettingsFilesDeletesAndSaysNothing) {
    files().addDirectory(settingsDirectory);
    EXPECT_TRUE(prepare());
    EXPECT_EQ(recorder().callsNamed({"FileSystem.unlink"}), Calls{});
    for (const LogLine& logged : lines())
        EXPECT_NE(logged.level, LogLevel::Warning) << logged;
}

TEST_F(Prepare, GoesOnAfterASettingsFileThatCannotBeDeleted) {
    files().addFile(settingsDirectory + "Sync_1.plist");
    files().addFile(settingsDirectory + "Sync_2.plist");
    files().addFile(settingsDirectory + "other");
    recorder().failCall("FileSystem.unlink");
    EXPECT_TRUE(prepare());
    EXPECT_THAT(lines(), testing::Contains(line(
                             LogLevel::Warning, operation,
                             "Could not remove sync plist during prepare: Input/output error")));
    EXPECT_THAT(files().pathsBelow(settingsDirectory), ElementsAre("Sync_1.plist", "other"));
}

TEST_F(Prepare, ReplacesATemporaryDirectoryByAnEmptyOne) {
    files().addFile("/var/tmp/Media/a/b");
    EXPECT_TRUE(prepare());
    EXPECT_TRUE(files().contains("/var/tmp/Media"));
    EXPECT_THAT(files().pathsBelow("/var/tmp/Media"), IsEmpty());
}

TEST_F(Prepare, MakesAMissingTemporaryDirectory) {
    EXPECT_TRUE(prepare());
    EXPECT_TRUE(files().contains("/var/tmp/Media"));
}

TEST_F(Prepare, IgnoresATemporaryDirectoryThatCannotBeReplaced) {
    files().addFile("/var/tmp/Media/a");
    client();
    recorder().failCall("FileSystem.removeItem");
    recorder().failCall("FileSystem.createDirectory");
    EXPECT_TRUE(prepare());
    EXPECT_EQ(lines().back(), line(LogLevel::Debug, operation, "Prepared!"));
}

TEST_F(Prepare, TakesNoErrorSlotAndNoProgressCallback) {
    EXPECT_TRUE(client().prepareForSyncWithHostAnchor("", {}, 1, "", nullptr));
}

TEST_F(Prepare, TheAnchorOfALibraryNeverSyncedIsZero) {
    EXPECT_EQ(client().currentSyncAnchor(), "0");
    EXPECT_EQ(calls(),
              (Calls{{"KV3Korvane.valueForDatabaseProperty", {"KVSyncClientSyncAnchor"}}}));
}

TEST_F(Prepare, TheAnchorIsThatOfTheLastSync) {
    library().databaseProperties["KVSyncClientSyncAnchor"] = "anchor 5";
    EXPECT_EQ(client().currentSyncAnchor(), "anchor 5");
}

}  // namespace
}  // namespace sync_bundle_tests
