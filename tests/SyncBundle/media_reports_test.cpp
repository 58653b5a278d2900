#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

constexpr std::uint64_t block = support::RecordingDaemon::blockSize;
const std::string artworkDirectory = "/private/var/mobile/Media/Tessel_Control/Artwork";
const std::string databaseDirectory = "/private/var/mobile/Media/Tessel_Control/Tessel";

class BackupPaths : public SyncClientTest {
protected:
    using Paths = std::vector<std::string>;
    Paths paths(Paths* notToBackup = nullptr) {
        client();
        forget();
        Paths found{"from before"};
        client().pathsToBackup(&found, notToBackup);
        return found;
    }
};

TEST_F(BackupPaths, AreTheManifestsOfClassTwo) {
    platform().storeDownloads().manifestPaths = {"/b", "/a"};
    EXPECT_THAT(paths(), ElementsAre("/b", "/a"));
    EXPECT_EQ(calls(), (Calls{{"OperatingSystem.makeSemaphore", {0}},
                              {"WorkQueue.async", {"global.default"}},
                              {"Semaphore.wait", {}},
                              {"VDDownloadFileManifest.initWithManifestType", {0}},
                              {"VDDownloadFileManifest.getPaths", {2}},
                              {"Semaphore.signal", {}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(BackupPaths, AreNoneWithoutAnAnswer) {
    EXPECT_THAT(paths(), IsEmpty());
    platform().storeDownloads().manifestPaths = {"/a"};
    recorder().failCall("VDDownloadFileManifest.getPaths");
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(BackupPaths, TheSecondListIsLeftAsItIs) {
    platform().storeDownloads().manifestPaths = {"/a"};
    Paths notToBackup{"as it was"};
    paths(&notToBackup);
    EXPECT_THAT(notToBackup, ElementsAre("as it was"));
    client().pathsToBackup(nullptr, nullptr);
}

TEST_F(BackupPaths, AreWaitedForHoweverLongItTakes) {
    platform().storeDownloads().manifestPaths = {"/a"};
    platform().storeDownloads().manifestTime = 3600 * second;
    const platform::Nanoseconds before = scheduler().now();
    EXPECT_THAT(paths(), ElementsAre("/a"));
    EXPECT_EQ(scheduler().now() - before, 3600 * second);
}

TEST_F(BackupPaths, AnExceptionOfTheManifestReachesTheCallersThread) {
    platform().storeDownloads().makeFileManifestThrows = true;
    EXPECT_THROW(paths(), std::runtime_error);
}

class InstalledAssetMetrics : public SyncClientTest {
protected:
    void addTrack(std::uint32_t mediaType, std::uint64_t size, bool isTemporary = false,
                  std::int64_t location = support::RecordingLibrary::musicLocation) {
        const auto id = static_cast<std::int64_t>(library().tracks.size() + 1);
        library().tracks[id] = {{KV3TrackPropertyMediaType, mediaType},
                                {KV3TrackPropertyTotalSize, size},
                                {KV3TrackPropertyIsTemporaryCloudDownload, isTemporary ? 1 : 0},
                                {KV3TrackPropertyBaseLocationID, location}};
    }
    Dictionary metrics() {
        client();
        forget();
        return client().installedAssetMetrics();
    }
};

TEST_F(InstalledAssetMetrics, WithoutTracksThereAreNoneAndNothingIsMeasured) {
    platform().syncDaemon().diskUsages[artworkDirectory] = 100;
    EXPECT_EQ(metrics(), Dictionary{});
    EXPECT_EQ(recorder().callsNamed({"ORGetDiskUsageForPath"}), Calls{});
}

TEST_F(InstalledAssetMetrics, AKeptAndATemporaryTrackOfMusic) {
    addTrack(0x8, 1000);
    addTrack(0x8, 1000, true);
    platform().syncDaemon().diskUsages = {{artworkDirectory, 70'000}, {databaseDirectory, 9'000}};
    const std::uint64_t size = block;
    EXPECT_EQ(metrics(), (Dictionary{{"Music", Dictionary{{"_Count", 1},
                                                          {"_PurgeableSize", size},
                                                          {"_PhysicalSize", 2 * size + 79'000}}}}));
    EXPECT_EQ(calls(), (Calls{{"KV3Track.queryWithLibrary", {"BaseLocationID != 0", Array{}}},
                              {"KV3TrackQuery.enumerate",
                               {Array{"MediaType", "TotalSize", "IsTemporaryCloudDownload"}}},
                              {"ORGetPhysicalSizeForLogicalSize", {1000}},
                              {"ORGetPhysicalSizeForLogicalSize", {1000}},
                              {"ORGetDiskUsageForPath", {artworkDirectory}},
                              {"ORGetDiskUsageForPath", {databaseDirectory}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(InstalledAssetMetrics, KeysAreAbsentWhereNothingCounts) {
    addTrack(0x800, 5000);
    addTrack(0x400, 5000, true);
    EXPECT_EQ(metrics(),
              (Dictionary{{"Movie", Dictionary{{"_Count", 1}, {"_PhysicalSize", 2 * block}}},
                          {"MusicVideo", Dictionary{{"_PhysicalSize", 2 * block},
                                                    {"_PurgeableSize", 2 * block}}}}));
}

TEST_F(InstalledAssetMetrics, ATrackWithoutAFileIsNotMeasured) {
    addTrack(0x8, 1000, false, 0);
    EXPECT_EQ(metrics(), Dictionary{});
    EXPECT_EQ(recorder().callsNamed({"ORGetPhysicalSizeForLogicalSize"}), Calls{});
}

TEST_F(InstalledAssetMetrics, WithoutMusicTheDirectoriesAreLeftOut) {
    addTrack(0x4, 1000);
    platform().syncDaemon().diskUsages[artworkDirectory] = 100;
    EXPECT_EQ(metrics(),
              (Dictionary{{"Podcast", Dictionary{{"_Count", 1}, {"_PhysicalSize", block}}}}));
    EXPECT_EQ(recorder().callsNamed({"ORGetDiskUsageForPath"}), Calls{});
}

TEST_F(InstalledAssetMetrics, EveryTypeHasAnEntryOfItsOwn) {
    for (const std::uint32_t mediaType :
         {0x8u, 0x400u, 0x800u, 0x200u, 0x4u, 0x100u, 0x2u, 0x20u, 0x1000u, 0x2000u})
        addTrack(mediaType, 1);
    std::vector<std::string> types;
    for (const auto& [type, values] : metrics())
        types.push_back(type);
    EXPECT_THAT(types,
                ElementsAre("Audiobook", "HomeVideo", "Movie", "Music", "MusicVideo", "Podcast",
                            "TVEpisode", "TesselU", "TesselUVideo", "VideoPodcast"));
}

// No media type lacks a kind, so no track is skipped for that.
TEST_F(InstalledAssetMetrics, ATrackOfNoKnownKindCountsAsMusic) {
    addTrack(0, 1000);
    addTrack(0x10, 1000);
    EXPECT_EQ(metrics(),
              (Dictionary{{"Music", Dictionary{{"_Count", 2}, {"_PhysicalSize", 2 * block}}}}));
}

TEST_F(InstalledAssetMetrics, AnEmptyFileCountsAndTakesNothing) {
    addTrack(0x2, 0);
    EXPECT_EQ(metrics(),
              (Dictionary{{"Audiobook", Dictionary{{"_Count", 1}, {"_PhysicalSize", 0}}}}));
}

class AccountNames : public SyncClientTest {
protected:
    static constexpr auto query = "SELECT DISTINCT account_id FROM item_store";
    std::set<std::string> names() {
        client();
        forget();
        return client().vantorIDsForAssets();
    }
};

TEST_F(AccountNames, AreThoseOfTheItemsAccounts) {
    library().queryRows[query] = {{77}, {Value()}, {-5}};
    library().accounts().names = {{77, "a@example.org"}, {-5, "b@example.org"}, {6, "c"}};
    EXPECT_EQ(names(), (std::set<std::string>{"a@example.org", "b@example.org"}));
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.databaseConnectionAllowingWrites",
                                     "KV3DatabaseConnection.executeQuery",
                                     "KV3AccountCacheDatabase.vantorIDForDSID"}),
              (Calls{{"KV3Korvane.databaseConnectionAllowingWrites", {false}},
                     {"KV3DatabaseConnection.executeQuery", {query}},
                     {"KV3AccountCacheDatabase.vantorIDForDSID", {-5}},
                     {"KV3AccountCacheDatabase.vantorIDForDSID", {77}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(AccountNames, OneAccountOfTwoItemsYieldsOneName) {
    library().queryRows[query] = {{77}, {77}};
    library().accounts().names = {{77, "a@example.org"}};
    EXPECT_EQ(names(), std::set<std::string>{"a@example.org"});
    EXPECT_EQ(recorder().callsNamed({"KV3AccountCacheDatabase.vantorIDForDSID"}).size(), 1u);
}

TEST_F(AccountNames, TwoAccountsOfOneNameYieldItOnce) {
    library().queryRows[query] = {{77}, {78}};
    library().accounts().names = {{77, "a"}, {78, "a"}};
    EXPECT_EQ(names(), std::set<std::string>{"a"});
}

TEST_F(AccountNames, AnUnknownAccountYieldsNone) {
    library().queryRows[query] = {{78}};
    EXPECT_EQ(names(), std::set<std::string>{});
}

TEST_F(AccountNames, WithoutItemsOrWithAFailedQueryThereAreNone) {
    EXPECT_EQ(names(), std::set<std::string>{});
    library().queryRows[query] = {{77}};
    library().accounts().names = {{77, "a"}};
    recorder().failCall("KV3DatabaseConnection.executeQuery");
    EXPECT_EQ(names(), std::set<std::string>{});
}

class DisabledAssetTypes : public SyncClientTest {};

TEST_F(DisabledAssetTypes, AreMusicAndMusicVideosWhenSignedIn) {
    platform().cloud().isAuthenticated = true;
    client();
    EXPECT_EQ(client().disabledAssetTypes(), (std::set<std::string>{"Music", "MusicVideo"}));
    EXPECT_EQ(calls(), (Calls{{"KLCloudClient.make", {}},
                              {"OperatingSystem.makeSemaphore", {0}},
                              {"KLCloudClient.isAuthenticated", {"global.default"}},
                              {"WorkQueue.async", {"global.default"}},
                              {"Semaphore.wait", {}},
                              {"Semaphore.signal", {}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(DisabledAssetTypes, AreAbsentAndNotEmptyWhenSignedOut) {
    EXPECT_EQ(client().disabledAssetTypes(), std::nullopt);
    platform().cloud().isAuthenticated = true;
    recorder().failCall("KLCloudClient.isAuthenticated");
    EXPECT_EQ(client().disabledAssetTypes(), std::nullopt);
}

TEST_F(DisabledAssetTypes, AreWaitedForHoweverLongItTakes) {
    platform().cloud().isAuthenticated = true;
    platform().cloud().answerTime = 60 * second;
    client();
    const platform::Nanoseconds before = scheduler().now();
    EXPECT_TRUE(client().disabledAssetTypes());
    EXPECT_EQ(scheduler().now() - before, 60 * second);
}

class ClearSyncData : public SyncClientTest {};

TEST_F(ClearSyncData, ForgetsTheAnchorAndNothingElse) {
    library().databaseProperties = {{"KVSyncClientSyncAnchor", "4"},
                                    {"KVSyncClientLastSyncedRevision", 3}};
    client();
    client().clearSyncData();
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.deleteDatabaseProperty", {"KVSyncClientSyncAnchor"}}}));
    EXPECT_EQ(client().currentSyncAnchor(), "0");
    EXPECT_EQ(library().databaseProperties.size(), 1u);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ClearSyncData, WithoutAnAnchorDoesNothingVisible) {
    client();
    client().clearSyncData();
    EXPECT_TRUE(library().databaseProperties.empty());
    recorder().failCall("KV3Korvane.deleteDatabaseProperty");
    client().clearSyncData();
    EXPECT_THAT(lines(), IsEmpty());
}

}  // namespace
}  // namespace sync_bundle_tests
