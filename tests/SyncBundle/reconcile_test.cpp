#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "reconcileSync:withNewAnchor:progressCallback:error:";
const std::string settingsDirectory = "/var/mobile/Media/Tessel_Control/Sync/Media/";
const std::string staging = "/var/mobile/Media/Stagehold/tmp/";
constexpr auto stopSuppressing = KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification;

class Reconcile : public SyncClientTest {
protected:
    Reconcile() {
        files().addFile(
            settingsDirectory + "Sync_1.plist",
            system().propertyLists().bytesFor(Dictionary{
                {"operations", Array{Dictionary{{"operation", "upload_track"}, {"pid", 5}}}}}));
        library().tracks[5] = {{KV3TrackPropertyFilePath, "/var/mobile/Media/a.mp3"}};
        files().addDirectory(staging);
    }
    bool reconcile(std::uint32_t syncType, OptionalError* error = nullptr) {
        client();
        forget();
        return client().reconcileSync(
            syncType, "anchor 2", [](double) { ADD_FAILURE() << "progress is not reported"; },
            error);
    }
    void importsFailWith(const OptionalError& error) {
        media().importService().success = false;
        media().importService().error = error;
    }
    static Calls importCalls(int isResetSync, bool isAuthenticated) {
        const Dictionary options{
            {"KVImportOperationOptionIsResetSyncKey", isResetSync},
            {"KVImportOperationOptionIsVeskaEnabledKey", isAuthenticated},
            {"KVImportOperationOptionSyncAnchorKey", "anchor 2"},
        };
        return {
            {"KV3Container.autoCreatedBuiltInSmartPlaylistsPIDs", {}},
            {"OperatingSystem.makeSemaphore", {0}},
            {"WorkQueue.async", {"global.background"}},
            {"Semaphore.wait", {}},
            {"KLCloudClient.make", {}},
            {"OperatingSystem.makeSemaphore", {0}},
            {"KLCloudClient.isAuthenticated", {"global.default"}},
            {"WorkQueue.async", {"global.default"}},
            {"Semaphore.wait", {}},
            {"Semaphore.signal", {}},
            {"KVMediaLibraryService.performImport",
             {6, "/var/mobile/Media/Tessel_Control/library.db", Value(), Value(), options}},
            {"KV3Korvane.notifyContentsDidChange", {}},
            {"Semaphore.signal", {}},
        };
    }
    static Calls uploadCalls() {
        return {
            {"FileSystem.contentsOfDirectory", {settingsDirectory}},
            {"FileSystem.readFile", {settingsDirectory + "Sync_1.plist"}},
            {"PropertyLists.parse", {}},
            {"KV3Track.newWithPersistentID", {5}},
            {"KV3Track.existsInLibrary", {5}},
            {"KV3Track.existsInLibrary", {5}},
            {"KV3Track.getValues", {5, Array{"FilePath"}}},
        };
    }
    static Calls together(std::vector<Calls> lists) {
        Calls all;
        for (const Calls& list : lists)
            all.insert(all.end(), list.begin(), list.end());
        return all;
    }
    static LogLine info(std::string message) {
        return line(LogLevel::Info, operation, std::move(message));
    }
};

TEST_F(Reconcile, WithoutSyncImportsNothingButReadsTheUploads) {
    EXPECT_TRUE(reconcile(0));
    EXPECT_EQ(calls(), together({{{"NamedNotifications.post", {stopSuppressing}}}, uploadCalls()}));
    EXPECT_EQ(inspector().pendingUploads.size(), 1u);
    EXPECT_THAT(lines(), ElementsAre(info("reconcileSync. syncType=0, anchor=anchor 2"),
                                     line(LogLevel::Warning, operation,
                                          "sync type is ORSyncNoSync - nothing to do"),
                                     line(LogLevel::Info, "_evaluateUploadTrackDatabaseChangeStep:",
                                          "Enqueuing asset upload request: <ORAsset 5>"),
                                     info("finished!")));
}

TEST_F(Reconcile, WithoutSyncTheSmartPlaylistsStayAsTheyWere) {
    inspector().autoCreatedSmartPlaylistsPIDs = {{1, 2}};
    EXPECT_TRUE(reconcile(0));
    EXPECT_EQ(inspector().autoCreatedSmartPlaylistsPIDs, (std::vector<std::int64_t>{1, 2}));
}

TEST_F(Reconcile, AnOrdinarySyncImportsThenReadsTheUploadsAndLeavesTheStagingArea) {
    platform().cloud().isAuthenticated = true;
    media().autoCreatedSmartPlaylists = {31, 32};
    EXPECT_TRUE(reconcile(1));
    EXPECT_EQ(calls(), together({importCalls(0, true), uploadCalls()}));
    EXPECT_EQ(inspector().autoCreatedSmartPlaylistsPIDs, (std::vector<std::int64_t>{31, 32}));
    EXPECT_THAT(lines(), ElementsAre(info("reconcileSync. syncType=1, anchor=anchor 2"),
                                     info("sync import complete. success=1, err=(null)"),
                                     line(LogLevel::Info, "_evaluateUploadTrackDatabaseChangeStep:",
                                          "Enqueuing asset upload request: <ORAsset 5>"),
                                     info("finished!")));
    EXPECT_TRUE(files().contains(staging));
}

TEST_F(Reconcile, AResetSyncRemovesTheStagingAreaThenChecksTheTracks) {
    files().addFile(staging + "Tessel_Control/Music/F00/a.mp3");
    EXPECT_TRUE(reconcile(2));
    EXPECT_EQ(calls(), together({importCalls(1, false),
                                 uploadCalls(),
                                 {{"FileSystem.removeItem", {staging}},
                                  {"KV3Korvane.updateTrackIntegrity", {}}}}));
    EXPECT_FALSE(files().contains(staging));
    EXPECT_FALSE(files().contains("/var/mobile/Media/Tessel_Control/Music/F00/a.mp3"));
}

TEST_F(Reconcile, AFailedResetSyncPutsStagedFilesBack) {
    const Error failure("service", 9);
    importsFailWith(failure);
    files().addFile(staging + "Tessel_Control/Music/F00/a.mp3", Data{1});
    files().addFile(staging + "Tessel_Control/Music/F00/b.mp3", Data{2});
    files().addFile(staging + "Podcasts/c.mp3", Data{3});
    files().addDirectory("/var/mobile/Media/Tessel_Control/Music/F00");
    files().addFile("/var/mobile/Media/Tessel_Control/Music/F00/b.mp3", Data{4});
    files().addDirectory("/var/mobile/Media/Podcasts");
    OptionalError error;
    EXPECT_FALSE(reconcile(2, &error));
    EXPECT_EQ(error, failure);
    const std::string stagedMusic = staging + "Tessel_Control/Music/";
    const std::string music = "/var/mobile/Media/Tessel_Control/Music/";
    EXPECT_EQ(calls(),
              together({importCalls(1, false),
                        {{"FileSystem.subpathsOfDirectory", {stagedMusic}},
                         {"FileSystem.fileExists", {music + "F00"}},
                         {"FileSystem.fileExists", {music + "F00/a.mp3"}},
                         {"FileSystem.linkItem", {stagedMusic + "F00/a.mp3", music + "F00/a.mp3"}},
                         {"FileSystem.fileExists", {music + "F00/b.mp3"}},
                         {"FileSystem.subpathsOfDirectory", {staging + "Podcasts/"}},
                         {"FileSystem.fileExists", {"/var/mobile/Media/Podcasts/c.mp3"}},
                         {"FileSystem.linkItem",
                          {staging + "Podcasts/c.mp3", "/var/mobile/Media/Podcasts/c.mp3"}},
                         {"FileSystem.removeItem", {staging}},
                         {"KV3Korvane.updateTrackIntegrity", {}}}}));
    EXPECT_TRUE(files().contains(music + "F00/a.mp3"));
    EXPECT_TRUE(files().contains("/var/mobile/Media/Podcasts/c.mp3"));
    EXPECT_FALSE(files().contains(staging));
    // The file that was there already is neither linked nor mentioned.
    EXPECT_THAT(lines(),
                ElementsAre(info("reconcileSync. syncType=2, anchor=anchor 2"),
                            info("sync import complete. success=0, err=Error Domain=service "
                                 "Code=9"),
                            info("recovering temporarily moved assets"), info("finished!")));
    EXPECT_TRUE(inspector().pendingUploads.empty());
}

TEST_F(Reconcile, AStagedFileThatCannotBePutBackIsLoggedAndSkipped) {
    importsFailWith(Error("service", 9));
    files().addFile(staging + "Tessel_Control/Music/a.mp3");
    files().addFile(staging + "Tessel_Control/Music/b.mp3");
    files().addFile(staging + "Podcasts/c.mp3");
    files().addDirectory("/var/mobile/Media/Tessel_Control/Music");
    recorder().failCall("FileSystem.linkItem");
    recorder().failCall("FileSystem.removeItem");
    EXPECT_FALSE(reconcile(2));
    EXPECT_TRUE(files().contains("/var/mobile/Media/Tessel_Control/Music/b.mp3"));
    EXPECT_THAT(
        lines(),
        ElementsAre(info("reconcileSync. syncType=2, anchor=anchor 2"),
                    info("sync import complete. success=0, err=Error Domain=service Code=9"),
                    info("recovering temporarily moved assets"),
                    line(LogLevel::Warning, operation,
                         "failed to restore Music asset a.mp3 back from tmp location. err=Error "
                         "Domain=POSIXErrorDomain Code=5 \"Input/output error\""),
                    line(LogLevel::Warning, operation,
                         "failed to restore Podcast asset c.mp3 back from tmp location. err=Error "
                         "Domain=POSIXErrorDomain Code=2 \"No such file or directory\""),
                    line(LogLevel::Warning, operation,
                         "Could not remove temporary tessel asset directory. err=Error "
                         "Domain=POSIXErrorDomain Code=5 \"Input/output error\""),
                    info("finished!")));
}

TEST_F(Reconcile, WithoutAnErrorSlotAFailedImportReturnsFalse) {
    importsFailWith(Error("service", 9));
    EXPECT_FALSE(reconcile(1, nullptr));
}

TEST_F(Reconcile, AFailureWithoutAnErrorIsNoFailure) {
    importsFailWith(std::nullopt);
    OptionalError error;
    EXPECT_TRUE(reconcile(2, &error));
    EXPECT_EQ(error, std::nullopt);
    EXPECT_EQ(recorder().callsNamed({"FileSystem.subpathsOfDirectory"}), Calls{});
    EXPECT_EQ(inspector().pendingUploads.size(), 1u);
}

TEST_F(Reconcile, ASuccessWithAnErrorKeepsItsSuccessAndReadsNoUploads) {
    media().importService().success = true;
    media().importService().error = Error("service", 1);
    OptionalError error;
    EXPECT_TRUE(reconcile(2, &error));
    EXPECT_EQ(error, Error("service", 1));
    EXPECT_TRUE(inspector().pendingUploads.empty());
    EXPECT_EQ(recorder().callsNamed({"FileSystem.subpathsOfDirectory"}), Calls{});
}

TEST_F(Reconcile, ThePreviousSessionsUploadsAreGone) {
    files().removeItem(settingsDirectory);
    for (const std::uint32_t syncType : {0u, 1u, 2u, 77u}) {
        inspector().pendingUploads["old"] = makeAsset("old", false);
        EXPECT_TRUE(reconcile(syncType));
        EXPECT_TRUE(inspector().pendingUploads.empty()) << syncType;
    }
}

TEST_F(Reconcile, TheErrorSlotIsLeftAloneBySuccess) {
    OptionalError error = Error("earlier", 1);
    EXPECT_TRUE(reconcile(1, &error));
    EXPECT_EQ(error, Error("earlier", 1));
}

TEST_F(Reconcile, WaitsForTheImportHoweverLongItTakes) {
    media().importService().importTime = 3600 * second;
    const platform::Nanoseconds before = scheduler().now();
    EXPECT_TRUE(reconcile(1));
    EXPECT_EQ(scheduler().now() - before, 3600 * second);
}

TEST_F(Reconcile, TheSmartPlaylistsAreThoseFromBeforeTheImport) {
    media().autoCreatedSmartPlaylists = {1};
    media().importService().whileImporting = [this] { media().autoCreatedSmartPlaylists = {2}; };
    EXPECT_TRUE(reconcile(1));
    EXPECT_EQ(inspector().autoCreatedSmartPlaylistsPIDs, (std::vector<std::int64_t>{1}));
}

TEST_F(Reconcile, AnExceptionOfTheImportJobReachesTheCallersThread) {
    platform().cloud().makeClientThrows = true;
    EXPECT_THROW(reconcile(1), std::runtime_error);
}

}  // namespace
}  // namespace sync_bundle_tests
