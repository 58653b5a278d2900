#include "tests/SyncBundle/asset_data_test.h"

#include <stdexcept>

namespace sync_bundle_tests {
namespace {

const std::string operation = "getDataForAsset:withCompletion:";
const std::string trackOperation = "getDataForTrackAsset:withCompletion:";
const std::string file = "/var/mobile/Media/Tessel_Control/Music/F01/song.m4a";
const platform::Nanoseconds never = platform::Never;

class AssetData : public AssetDataTest {
protected:
    AssetData() { addTrack(11); }

    void addFile() {
        library().tracks[11][KV3TrackPropertyFilePath] = file;
        library().tracks[11][KV3TrackPropertyLocationFileName] = "song.m4a";
        files().addFile(file, {1, 2, 3});
    }
    // A download of the track that the manager has in hand.
    std::shared_ptr<support::ScriptedDownload> addDownload() {
        client();
        auto download = std::make_shared<support::ScriptedDownload>(501, "11");
        manager().scriptedDownloads = {download};
        return download;
    }
    support::RecordingDownloadManager& manager() {
        return *platform().storeDownloads().lastManager();
    }
    // The download of a request reaches its last phase, and the answer's time comes.
    void install() {
        const auto download = addDownload();
        ask(makePulled("11", 1));
        download->phase = VDDownloadPhaseInstalling;
        client().downloadManagerDownloadStatesDidChange(manager(), {download});
        scheduler().runDueJobs();
        forget();
        scheduler().advance(5 * second);
    }
    static LogLine finished(const std::string& error) {
        return line(LogLevel::Warning, trackOperation,
                    "finished downloading data for asset <ORAsset 11>. error=" + error);
    }
};

TEST_F(AssetData, TheCallReturnsAtOnceAndTheWorkRunsOnTheQueue) {
    addFile();
    _queue = inspector().queue;
    client().getDataForAsset(makePulled("11", 1), handler());
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}}}));
    EXPECT_TRUE(_answers.empty());
    scheduler().runDueJobs();
    EXPECT_TRUE(answer().isOnQueue);
}

TEST_F(AssetData, TheClientIsKeptUntilTheWorkHasRun) {
    addFile();
    _queue = inspector().queue;
    const auto weak = weakClient();
    client().getDataForAsset(makePulled("11", 1), handler());
    releaseClient();
    EXPECT_FALSE(weak.expired());
    scheduler().runDueJobs();
    expectServed({1, 2, 3}, "song.m4a");
    EXPECT_TRUE(weak.expired());
}

TEST_F(AssetData, AnAssetOfNoTrackIsRefusedWhateverItsKind) {
    for (const std::uint64_t parts : {0u, 1u, 2u, 3u, 4u}) {
        _answers.clear();
        ask(makePulled("12", parts));
        expectRefused();
        EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                                  {"KV3Track.newWithPersistentID", {12}},
                                  {"KV3Track.existsInLibrary", {12}}}));
        EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, operation,
                                              "no track for asset <ORAsset 12>")));
    }
}

TEST_F(AssetData, AnIdentifierIsReadAsASigned64BitNumber) {
    addTrack(-9223372036854775807 - 1);
    ask(makePulled("-9223372036854775808", 4));
    EXPECT_EQ(calls()[1], (Call{"KV3Track.newWithPersistentID", {-9223372036854775807 - 1}}));
    expectRefused();
}

TEST_F(AssetData, PartsOfNoKnownKindGetNoAnswer) {
    addFile();
    for (const std::uint64_t parts : {0u, 3u, 5u, 6u, 7u, 8u})
        ask(makePulled("11", parts));
    ask(makeAsset("11", false));
    scheduler().advance(60 * second);
    EXPECT_TRUE(_answers.empty());
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(AssetData, KenningDataIsNeverServed) {
    ask(makePulled("11", 4));
    expectRefused();
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.existsInLibrary", {11}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(AssetData, ATrackOnDiskIsServedWithoutAskingTheDownloadManager) {
    addFile();
    addDownload();
    ask(makePulled("11", 1));
    expectServed({1, 2, 3}, "song.m4a");
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.existsInLibrary", {11}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.absoluteFilePath", {11}},
                              {"FileSystem.fileExists", {file}},
                              {"FileSystem.openInputStream", {file}}}));
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(AssetData, AFileThatCannotBeOpenedCannotBeServed) {
    addFile();
    client();
    recorder().failCall("FileSystem.openInputStream");
    ask(makePulled("11", 1));
    expectRefused();
}

TEST_F(AssetData, ATrackWithoutFileAndDownloadIsRefused) {
    library().tracks[11][KV3TrackPropertyFilePath] = "/nothing/there";
    client();
    manager().scriptedDownloads = {std::make_shared<support::ScriptedDownload>(501, "12")};
    ask(makePulled("11", 1));
    expectRefused();
    EXPECT_EQ(calls(), (Calls{{"WorkQueue.async", {"KVSyncClient"}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.existsInLibrary", {11}},
                              {"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.absoluteFilePath", {11}},
                              {"FileSystem.fileExists", {"/nothing/there"}},
                              {"VDDownloadManager.downloads", {}}}));
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, trackOperation,
                                          "no file for track asset <ORAsset 11>")));
    EXPECT_TRUE(inspector().requestsByIdentifier.empty());
}

TEST_F(AssetData, ATrackThatIsBeingDownloadedIsWaitedFor) {
    addDownload();
    const auto asset = makePulled("11", 1);
    ask(asset);
    EXPECT_TRUE(_answers.empty());
    ASSERT_EQ(inspector().requestsByIdentifier.size(), 1u);
    const KVSyncAssetRequest& request = *inspector().requestsByIdentifier.at("11");
    EXPECT_EQ(request.asset, asset);
    EXPECT_EQ(request.timestamp, system().absoluteTime());
    EXPECT_EQ(
        calls(),
        (Calls{{"WorkQueue.async", {"KVSyncClient"}},
               {"KV3Track.newWithPersistentID", {11}},
               {"KV3Track.existsInLibrary", {11}},
               {"KV3Track.newWithPersistentID", {11}},
               {"KV3Track.absoluteFilePath", {11}},
               {"VDDownloadManager.downloads", {}},
               {"TimerSource.setTimer", {scheduler().now() + 30 * second, never, 1'000'000}}}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Warning, trackOperation,
                                 "waiting for download manager to fetch track for asset <ORAsset "
                                 "11>"),
                            line(LogLevel::Warning, "_adjustRequestQueue",
                                 "request is over due by 0.000000 seconds"),
                            line(LogLevel::Warning, "_adjustRequestQueue",
                                 "next timeout time in 30.000000 seconds")));
}

TEST_F(AssetData, ARequestThatIsNotFinishedInThirtySecondsIsRefused) {
    addDownload();
    ask(makePulled("11", 1));
    forget();
    scheduler().advance(30 * second);
    EXPECT_TRUE(_answers.empty());
    scheduler().advance(1'000'000);
    expectRefused();
    EXPECT_TRUE(answer().isOnQueue);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Warning, "_adjustRequestQueue",
                                          "request is over due by 30.001000 seconds"),
                                     line(LogLevel::Warning, "_adjustRequestQueue",
                                          "timeout requesting asset <ORAsset 11>"),
                                     finished("Error Domain=ORError Code=3")));
    EXPECT_TRUE(inspector().requestsByIdentifier.empty());
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(AssetData, ANewerRequestReplacesAnOlderOneWhichIsNeverFinished) {
    addDownload();
    ask(makePulled("11", 1));
    scheduler().advance(10 * second);
    const std::weak_ptr<KVSyncAssetRequest> older = inspector().requestsByIdentifier.at("11");
    ask(makePulled("11", 1));
    EXPECT_TRUE(older.expired());
    EXPECT_EQ(inspector().requestsByIdentifier.size(), 1u);
    scheduler().advance(120 * second);
    EXPECT_EQ(_answers.size(), 1u);
}

TEST_F(AssetData, AnInstalledTrackIsServedFromItsFile) {
    client();
    library().tracks[11][KV3TrackPropertyFilePath] = file;
    const auto download = addDownload();
    ask(makePulled("11", 1));
    addFile();
    download->phase = VDDownloadPhaseInstalling;
    client().downloadManagerDownloadStatesDidChange(manager(), {download});
    scheduler().runDueJobs();
    forget();
    scheduler().advance(5 * second);
    expectServed({1, 2, 3}, "song.m4a");
    EXPECT_TRUE(answer().isOnQueue);
    EXPECT_THAT(lines(), ElementsAre(finished("(null)")));
    EXPECT_EQ(calls(), (Calls{{"KV3Track.newWithPersistentID", {11}},
                              {"KV3Track.valueForProperty", {11, "LocationFileName"}},
                              {"KV3Track.absoluteFilePath", {11}},
                              {"FileSystem.fileExists", {file}},
                              {"FileSystem.openInputStream", {file}}}));
}

TEST_F(AssetData, ANamedButMissingFileEndsTheRequestSilently) {
    library().tracks[11][KV3TrackPropertyLocationFileName] = "song.m4a";
    for (const Value& path : {Value(), Value(file)}) {
        library().tracks[11][KV3TrackPropertyFilePath] = path;
        install();
        EXPECT_THAT(lines(), ElementsAre(finished("(null)")));
        scheduler().advance(120 * second);
        EXPECT_TRUE(_answers.empty());
        EXPECT_TRUE(inspector().requestsByIdentifier.empty());
    }
}

TEST_F(AssetData, AnInstalledTrackWithoutFileNameIsRefused) {
    for (const Value& name : {Value(), Value("")}) {
        _answers.clear();
        library().tracks[11][KV3TrackPropertyLocationFileName] = name;
        install();
        expectRefused();
        EXPECT_EQ(calls(), (Calls{{"KV3Track.newWithPersistentID", {11}},
                                  {"KV3Track.valueForProperty", {11, "LocationFileName"}}}));
    }
}

TEST_F(AssetData, ATrackThatLeftWhileItWasWaitedForIsRefused) {
    const auto download = addDownload();
    ask(makePulled("11", 1));
    library().tracks.clear();
    download->phase = VDDownloadPhaseInstalling;
    client().downloadManagerDownloadStatesDidChange(manager(), {download});
    scheduler().advance(5 * second);
    expectRefused();
}

TEST_F(AssetData, APendingRequestDoesNotKeepTheClient) {
    addDownload();
    ask(makePulled("11", 1));
    const auto weak = weakClient();
    releaseClient();
    EXPECT_TRUE(weak.expired());
    scheduler().advance(120 * second);
    EXPECT_TRUE(_answers.empty());
}

TEST_F(AssetData, WhatALookUpThrowsIsARefusal) {
    class FailingManager : public VDDownloadManager {
    public:
        void addObserver(std::weak_ptr<VDDownloadManagerObserver>) override {}
        std::vector<std::shared_ptr<VDDownload>> downloads() override {
            throw std::runtime_error("no downloads");
        }
    };
    inspector().downloadManager = std::make_shared<FailingManager>();
    EXPECT_NO_THROW(ask(makePulled("11", 1)));
    expectRefused();
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "could not provide data of asset <ORAsset 11>: no "
                                          "downloads")));
}

TEST_F(AssetData, WhatTheHostsHandlerThrowsEndsThere) {
    addFile();
    int answers = 0;
    client().getDataForAsset(makePulled("11", 1), [&](const auto&, auto, const auto&) {
        ++answers;
        throw std::runtime_error("no more");
    });
    EXPECT_NO_THROW(scheduler().runDueJobs());
    EXPECT_EQ(answers, 1);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "could not provide data of asset <ORAsset 11>: no "
                                          "more")));
}

}  // namespace
}  // namespace sync_bundle_tests
