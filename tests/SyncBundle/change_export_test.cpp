#include "tests/SyncBundle/sync_client_test.h"
#include "tests/support/recording_streams.h"

namespace sync_bundle_tests {
namespace {

const std::string getChanges =
    "getChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:"
    "intoOutputStream:withStartHandler:withProgressHandler:withCompletionHandler:";
const std::string exportTracks =
    "_exportTrackChangesForSyncType:endpointType:afterRevision:upToRevision:withSyncParams:"
    "intoOutputStream:withProgressHandler:withCompletionHandler:";

constexpr std::int64_t added = 0;
constexpr std::int64_t deleted = 1;
constexpr std::int64_t noBound = 1'000'000;

// What the daemon asks for; ordinary values unless a test says otherwise.
struct Request {
    std::uint32_t syncType = 1;
    std::uint32_t endpointType = 1;
    std::int64_t afterRevision = 0;
    std::int64_t upToRevision = noBound;
    Dictionary syncParams = {};
};

Data bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

// The handlers' calls stand in the list of calls as "startHandler" and so on.
class ChangeExport : public SyncClientTest {
protected:
    ChangeExport() { _stream->open(); }

    std::vector<support::RecordedChange>& playlists() { return library().changes[1]; }
    std::vector<support::RecordedChange>& tracks() { return library().changes[0]; }

    void start(const Request& request) {
        client();
        forget();
        client().getChangesForSyncType(
            request.syncType, request.endpointType, request.afterRevision, request.upToRevision,
            request.syncParams, _stream,
            [this](const Dictionary& params) { recorder().record("startHandler", {params}); },
            [this](std::uint64_t completed, std::uint64_t total) {
                recorder().record("progressHandler", {completed, total});
            },
            [this](const OptionalError& error) {
                recorder().record("completionHandler",
                                  {error ? Value(error->description()) : Value()});
                if (_whenCompleted)
                    _whenCompleted();
            });
    }
    void exportChanges(const Request& request = {}) {
        start(request);
        scheduler().runDueJobs();
    }
    std::string exported() const { return {_stream->bytes().begin(), _stream->bytes().end()}; }
    Calls callsOf(std::string name) { return recorder().callsNamed({std::move(name)}); }
    Calls completions() { return callsOf("completionHandler"); }

    static Dictionary params(std::uint64_t playlistDataLen, std::uint64_t syncItemCount) {
        return {{"FormatType", "QORX"},
                {"PlaylistDataLen", playlistDataLen},
                {"SyncItemCount", syncItemCount}};
    }
    static Calls completedWith(const Value& error) { return {{"completionHandler", {error}}}; }
    static LogLine info(const std::string& operation, std::string message) {
        return line(LogLevel::Info, operation, std::move(message));
    }
    static LogLine warning(const std::string& operation, std::string message) {
        return line(LogLevel::Warning, operation, std::move(message));
    }

    const std::shared_ptr<support::RecordingOutputStream> _stream =
        std::make_shared<support::RecordingOutputStream>(recorder(), "daemon");
    std::function<void()> _whenCompleted;
};

TEST_F(ChangeExport, WritesThePlaylistsThenTheTracksInTheirOrder) {
    playlists() = {{1, 10, added}, {2, 11, added}, {3, 12, deleted}, {4, 13, deleted}};
    media().builtInSmartPlaylists = {2};
    tracks() = {{20, 4, added}, {21, 5, added},   {22, 6, deleted},
                {21, 7, added}, {23, 8, deleted}, {24, 9, added}};
    const Array mediaTypes{8, 1024};
    exportChanges({.afterRevision = 4,
                   .upToRevision = 8,
                   .syncParams = {{"SupportedMediaTypes", mediaTypes}, {"Other", 1}}});
    EXPECT_EQ(exported(), "[P1;p3;][T21;t22;t23;]");
    const Calls expected{
        {"KV3Korvane.countOfChangedPersistentIds", {4, 1, 3}},
        {"KV3Korvane.countOfChangedPersistentIds", {4, 0, 3}},
        {"progressHandler", {0, 9}},
        {"FileSystem.makeMemoryOutputStream", {}},
        {"OutputStream.open", {"memory"}},
        {"KV3QORXExportSession.initWithLibrary", {"<memory>"}},
        {"KV3QORXExportSession.begin", {}},
        {"OutputStream.write", {"memory", bytes("[")}},
        {"KV3Korvane.enumeratePersistentIDs", {4, 1, 3}},
        {"KV3Container.initWithPersistentID", {1}},
        {"KV3Container.isBuiltInSmartPlaylist", {1}},
        {"KV3QORXExportSession.exportPlaylist", {1}},
        {"OutputStream.write", {"memory", bytes("P1;")}},
        {"KV3Container.initWithPersistentID", {2}},
        {"KV3Container.isBuiltInSmartPlaylist", {2}},
        {"KV3Container.initWithPersistentID", {3}},
        {"KV3Container.isBuiltInSmartPlaylist", {3}},
        {"KV3Container.initWithPersistentID", {4}},
        {"KV3Container.isBuiltInSmartPlaylist", {4}},
        {"KV3QORXExportSession.exportPlaylistDeleted", {3}},
        {"OutputStream.write", {"memory", bytes("p3;")}},
        {"KV3QORXExportSession.end", {}},
        {"OutputStream.write", {"memory", bytes("]")}},
        {"MemoryOutputStream.takeData", {"memory"}},
        {"startHandler", {params(8, 9)}},
        {"ORStreamWriter.initWithOutputStream", {"<daemon>", Value()}},
        {"ORStreamWriter.writeAllData", {bytes("[P1;p3;]")}},
        {"OutputStream.write", {"daemon", bytes("[P1;p3;]")}},
        {"KV3QORXExportSession.initWithLibrary", {"<daemon>"}},
        {"KV3QORXExportSession.begin", {}},
        {"OutputStream.write", {"daemon", bytes("[")}},
        {"KV3Korvane.enumeratePersistentIDsForMediaTypes", {4, 0, 3, mediaTypes}},
        {"KV3QORXExportSession.exportTrack", {21}},
        {"OutputStream.write", {"daemon", bytes("T21;")}},
        {"KV3Korvane.stoppedEnumeration", {24}},
        {"KV3QORXExportSession.exportTrackDeleted", {22}},
        {"OutputStream.write", {"daemon", bytes("t22;")}},
        {"KV3QORXExportSession.exportTrackDeleted", {23}},
        {"OutputStream.write", {"daemon", bytes("t23;")}},
        {"KV3QORXExportSession.end", {}},
        {"OutputStream.write", {"daemon", bytes("]")}},
        {"completionHandler", {Value()}},
    };
    EXPECT_EQ(calls(), expected);
}

TEST_F(ChangeExport, SaysWhatItExports) {
    playlists() = {{-1, 10, added}, {3, 12, deleted}};
    tracks() = {{21, 5, added}, {-22, 6, deleted}};
    exportChanges({.afterRevision = 4, .upToRevision = 5'000'000'000});
    EXPECT_THAT(
        lines(),
        ElementsAre(
            info(getChanges, "gathering changes for sync. fromRevision=4, toRevision=5000000000"),
            info(getChanges, "[add playlist] pid=-1"), info(getChanges, "[delete playlist] pid=3"),
            info(getChanges, "writing 9 bytes of playlist data"),
            info(exportTracks, "[add track] pid=21"),
            info(exportTracks, "[deleted track] pid=-22")));
}

TEST_F(ChangeExport, AnotherTypeOfEndpointGetsTheCountOfTracksAndNothingElse) {
    playlists() = {{1, 10, added}};
    tracks() = {{21, 5, added}, {22, 6, deleted}};
    for (const std::uint32_t endpointType : {0u, 2u, 0xFFFF'FFFFu}) {
        exportChanges({.endpointType = endpointType});
        EXPECT_EQ(calls(), (Calls{{"KV3Korvane.countOfChangedPersistentIds", {0, 0, 3}},
                                  {"progressHandler", {0, 2}},
                                  {"FileSystem.makeMemoryOutputStream", {}},
                                  {"OutputStream.open", {"memory"}},
                                  {"MemoryOutputStream.takeData", {"memory"}},
                                  {"startHandler", {params(0, 2)}},
                                  {"completionHandler", {Value()}}}))
            << endpointType;
        EXPECT_THAT(lines(), ElementsAre(info(getChanges,
                                              "gathering changes for sync. fromRevision=0, "
                                              "toRevision=1000000"),
                                         info(getChanges, "writing 0 bytes of playlist data")));
    }
    EXPECT_EQ(exported(), "");
}

TEST_F(ChangeExport, WithoutChangedPlaylistsTheirSectionIsAnEmptySession) {
    tracks() = {{21, 5, added}};
    exportChanges();
    EXPECT_EQ(callsOf("startHandler"), (Calls{{"startHandler", {params(2, 1)}}}));
    EXPECT_EQ(exported(), "[][T21;]");
}

TEST_F(ChangeExport, APlaylistSectionWithoutBytesNeedsNoWriter) {
    media().exportHeader = "";
    media().exportTrailer = "";
    tracks() = {{21, 5, added}};
    start({});
    EXPECT_EQ(completions(), completedWith(Value()));
    EXPECT_EQ(callsOf("startHandler"), (Calls{{"startHandler", {params(0, 1)}}}));
    EXPECT_EQ(callsOf("ORStreamWriter.initWithOutputStream"), Calls{});
    EXPECT_EQ(exported(), "T21;");
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(ChangeExport, ABuiltInSmartPlaylistIsNeitherExportedNorDeleted) {
    playlists() = {{1, 10, added}, {2, 11, deleted}, {3, 12, deleted}};
    media().builtInSmartPlaylists = {1, 2};
    exportChanges();
    EXPECT_EQ(exported(), "[p3;][]");
    // The count is a hint, and has them.
    EXPECT_EQ(callsOf("progressHandler"), (Calls{{"progressHandler", {0, 3}}}));
}

TEST_F(ChangeExport, OnlyTheFirstOfSeveralDeletedPlaylistsIsExported) {
    playlists() = {{7, 10, deleted}, {5, 11, deleted}, {1, 12, added}, {6, 13, deleted}};
    exportChanges();
    EXPECT_EQ(exported(), "[P1;p7;][]");
}

TEST_F(ChangeExport, SyncTypeTwoExportsNoDeletions) {
    playlists() = {{1, 10, added}, {2, 11, deleted}};
    tracks() = {{21, 5, added}, {22, 6, deleted}, {23, 7, added}};
    exportChanges({.syncType = 2});
    EXPECT_EQ(exported(), "[P1;][T21;T23;]");
}

TEST_F(ChangeExport, EveryOtherSyncTypeExportsDeletions) {
    playlists() = {{2, 11, deleted}};
    tracks() = {{22, 6, deleted}};
    for (const std::uint32_t syncType : {0u, 1u, 3u, 0xFFFF'FFFFu}) {
        const std::string before = exported();
        exportChanges({.syncType = syncType});
        EXPECT_EQ(exported(), before + "[p2;][t22;]") << syncType;
    }
}

TEST_F(ChangeExport, EveryKindOfChangeButZeroIsADeletion) {
    playlists() = {{2, 11, 2}};
    tracks() = {{22, 6, -1}, {23, 7, 4'294'967'296}};
    exportChanges();
    EXPECT_EQ(exported(), "[p2;][t22;t23;]");
}

TEST_F(ChangeExport, ATrackChangedTwiceIsAddedOnce) {
    tracks() = {{21, 5, added}, {22, 6, added}, {21, 7, added}};
    exportChanges();
    EXPECT_EQ(exported(), "[][T21;T22;]");
}

TEST_F(ChangeExport, ATrackBeyondTheUpperBoundEndsTheTracksButNotThePlaylists) {
    playlists() = {{1, 90, added}, {2, 91, deleted}};
    tracks() = {{21, 50, added}, {22, 51, deleted}, {23, 52, added}, {24, 50, added}};
    exportChanges({.upToRevision = 51});
    EXPECT_EQ(exported(), "[P1;p2;][T21;t22;]");
    EXPECT_EQ(callsOf("KV3Korvane.stoppedEnumeration"),
              (Calls{{"KV3Korvane.stoppedEnumeration", {23}}}));
    EXPECT_EQ(callsOf("progressHandler"), (Calls{{"progressHandler", {0, 6}}}));
}

TEST_F(ChangeExport, ADeletedTrackBeyondTheUpperBoundEndsTheTracksToo) {
    tracks() = {{21, 50, added}, {22, 52, deleted}};
    exportChanges({.upToRevision = 51});
    EXPECT_EQ(exported(), "[][T21;]");
}

TEST_F(ChangeExport, AnUpperBoundOfZeroExportsNoTracks) {
    playlists() = {{1, 90, added}};
    tracks() = {{21, 1, added}, {22, 2, deleted}};
    exportChanges({.upToRevision = 0});
    EXPECT_EQ(exported(), "[P1;][]");
    EXPECT_EQ(completions(), completedWith(Value()));
}

TEST_F(ChangeExport, TheUpperBoundIsComparedWithoutItsSign) {
    tracks() = {{21, 1, added}, {22, INT64_MAX, added}};
    exportChanges({.upToRevision = -1});
    EXPECT_EQ(exported(), "[][T21;T22;]");
}

TEST_F(ChangeExport, ANegativeRevisionIsBeyondEveryPositiveBound) {
    tracks() = {{21, -5, added}};
    exportChanges({.afterRevision = -10, .upToRevision = 100});
    EXPECT_EQ(exported(), "[][]");
}

TEST_F(ChangeExport, WithoutMediaTypesTheFilterIsAbsent) {
    exportChanges({.afterRevision = 3});
    EXPECT_EQ(callsOf("KV3Korvane.enumeratePersistentIDsForMediaTypes"),
              (Calls{{"KV3Korvane.enumeratePersistentIDsForMediaTypes", {3, 0, 3, Value()}}}));
}

TEST_F(ChangeExport, AFailedPlaylistEndsTheExportBeforeItStarts) {
    playlists() = {{1, 10, added}, {2, 11, deleted}, {3, 12, added}, {4, 13, added}};
    tracks() = {{21, 5, added}};
    recorder().failCall("KV3QORXExportSession.exportPlaylist", 2);
    exportChanges();
    EXPECT_EQ(exported(), "");
    EXPECT_EQ(callsOf("startHandler"), Calls{});
    Calls end = calls();
    end.erase(end.begin(), end.end() - 5);
    EXPECT_EQ(end, (Calls{{"KV3QORXExportSession.exportPlaylist", {3}},
                          {"KV3Korvane.stoppedEnumeration", {3}},
                          {"KV3QORXExportSession.end", {}},
                          {"OutputStream.write", {"memory", bytes("]")}},
                          {"completionHandler", {"Error Domain=KV3QORX Code=3"}}}));
    EXPECT_THAT(
        lines(),
        ElementsAre(
            info(getChanges, "gathering changes for sync. fromRevision=0, toRevision=1000000"),
            info(getChanges, "[add playlist] pid=1"), info(getChanges, "[add playlist] pid=3"),
            warning(getChanges,
                    "failed to export track 3. err=Error "
                    "Domain=KV3QORX Code=3")));
}

TEST_F(ChangeExport, AFailedDeletionOfAPlaylistEndsTheExportBeforeItStarts) {
    playlists() = {{1, 10, added}, {2, 11, deleted}, {3, 12, deleted}};
    recorder().failCall("KV3QORXExportSession.exportPlaylistDeleted");
    exportChanges();
    EXPECT_EQ(exported(), "");
    EXPECT_EQ(callsOf("startHandler"), Calls{});
    EXPECT_EQ(recorder().callsNamed({"KV3QORXExportSession.exportPlaylistDeleted",
                                     "KV3QORXExportSession.end", "completionHandler"}),
              (Calls{{"KV3QORXExportSession.exportPlaylistDeleted", {2}},
                     {"KV3QORXExportSession.end", {}},
                     {"completionHandler", {"Error Domain=KV3QORX Code=2"}}}));
    EXPECT_EQ(lines().back(), warning(getChanges,
                                      "failed to export delete for playlist 2. err=Error "
                                      "Domain=KV3QORX Code=2"));
}

TEST_F(ChangeExport, AFailedTrackEndsItsSectionAfterThePlaylistsAreWritten) {
    playlists() = {{1, 10, added}};
    tracks() = {{21, 5, added}, {22, 6, deleted}, {23, 7, added}, {24, 8, added}};
    recorder().failCall("KV3QORXExportSession.exportTrack", 2);
    exportChanges();
    EXPECT_EQ(exported(), "[P1;][T21;]");
    EXPECT_EQ(callsOf("startHandler"), (Calls{{"startHandler", {params(5, 5)}}}));
    Calls end = calls();
    end.erase(end.begin(), end.end() - 5);
    EXPECT_EQ(end, (Calls{{"KV3QORXExportSession.exportTrack", {23}},
                          {"KV3Korvane.stoppedEnumeration", {23}},
                          {"KV3QORXExportSession.end", {}},
                          {"OutputStream.write", {"daemon", bytes("]")}},
                          {"completionHandler", {"Error Domain=KV3QORX Code=23"}}}));
    EXPECT_EQ(lines().back(), warning(exportTracks,
                                      "failed to export track 23. err=Error "
                                      "Domain=KV3QORX Code=23"));
}

TEST_F(ChangeExport, AFailedDeletionOfATrackEndsTheDeletions) {
    tracks() = {{21, 5, deleted}, {22, 6, deleted}, {23, 7, deleted}};
    recorder().failCall("KV3QORXExportSession.exportTrackDeleted", 2);
    exportChanges();
    EXPECT_EQ(exported(), "[][t21;]");
    EXPECT_EQ(completions(), completedWith("Error Domain=KV3QORX Code=22"));
    EXPECT_EQ(callsOf("KV3QORXExportSession.end").size(), 2u);
    EXPECT_EQ(lines().back(), warning(exportTracks,
                                      "failed to export delete for track 22. err=Error "
                                      "Domain=KV3QORX Code=22"));
}

TEST_F(ChangeExport, WhetherThePlaylistsCouldBeWrittenIsNotExamined) {
    playlists() = {{1, 10, added}};
    tracks() = {{21, 5, added}};
    recorder().failCall("ORStreamWriter.writeAllData");
    exportChanges();
    EXPECT_EQ(exported(), "[T21;]");
    EXPECT_EQ(completions(), completedWith(Value()));
    EXPECT_EQ(inspector().streams.size(), 0u);
}

TEST_F(ChangeExport, TheWriterIsKeptUntilTheCompletionHandlerHasBeenCalled) {
    std::size_t streamsAtCompletion = 0;
    _whenCompleted = [&] { streamsAtCompletion = inspector().streams.size(); };
    start({});
    EXPECT_EQ(inspector().streams.size(), 1u);
    EXPECT_EQ(completions(), Calls{});
    scheduler().runDueJobs();
    EXPECT_EQ(streamsAtCompletion, 1u);
    EXPECT_EQ(inspector().streams.size(), 0u);
    EXPECT_EQ(completions().size(), 1u);
}

TEST_F(ChangeExport, AnExportMayFollowFromTheCompletionHandlerOfAnother) {
    int left = 2;
    _whenCompleted = [&] {
        if (left-- > 0)
            start({});
    };
    exportChanges();
    EXPECT_EQ(exported(), "[][][][][][]");
    EXPECT_EQ(inspector().streams.size(), 0u);
}

TEST_F(ChangeExport, AClientLetGoLivesUntilItsExportIsComplete) {
    tracks() = {{21, 5, added}};
    start({});
    releaseClient();
    forget();
    scheduler().runDueJobs();
    EXPECT_EQ(exported(), "[][T21;]");
    EXPECT_EQ(recorder().callsNamed({"completionHandler", "KV3Korvane.reconnectToDatabase"}),
              (Calls{{"completionHandler", {Value()}}, {"KV3Korvane.reconnectToDatabase", {}}}));
}

}  // namespace
}  // namespace sync_bundle_tests
