#include <numeric>
#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"
#include "tests/support/recording_streams.h"

namespace sync_bundle_tests {
namespace {

const std::string operation =
    "applyChangesForSyncType:endpointType:fromStream:withSyncParams:withProgressHandler:"
    "withCompletionHandler:";
const std::string databasePath = "/var/mobile/Media/Tessel_Control/library.db";

// 0, 1, 2 and so on.
Data counting(std::size_t length) {
    Data data(length);
    std::iota(data.begin(), data.end(), std::uint8_t{0});
    return data;
}

Data part(const Data& data, std::size_t begin, std::size_t end) {
    return {data.begin() + static_cast<std::ptrdiff_t>(begin),
            data.begin() + static_cast<std::ptrdiff_t>(end)};
}

// The handlers' calls stand in the list of calls as "progressHandler" and "completionHandler".
class ChangeImport : public SyncClientTest {
protected:
    ChangeImport() { library().revision = 77; }

    void start(std::unique_ptr<platform::InputStream> stream, const Dictionary& syncParams = {}) {
        client();
        forget();
        client().applyChangesForSyncType(
            1, 1, std::move(stream), syncParams,
            [this](std::uint64_t completed, std::uint64_t total) {
                recorder().record("progressHandler", {completed, total});
            },
            [this](const OptionalError& error, std::int64_t revision) {
                recorder().record("completionHandler",
                                  {error ? Value(error->description()) : Value(), revision});
            });
    }
    void importData(const Data& data, const Dictionary& syncParams = {}) {
        start(streamOf(data), syncParams);
        scheduler().runDueJobs();
    }
    static std::unique_ptr<platform::InputStream> streamOf(Data data) {
        return std::make_unique<support::MemoryInputStream>("peer", std::move(data));
    }
    Calls callsOf(std::string name) { return recorder().callsNamed({std::move(name)}); }
    Calls imports() { return callsOf("KVMediaLibraryService.performImport"); }
    Calls completions() { return callsOf("completionHandler"); }
    // One import of these; null for absent.
    static Calls importOf(const Value& trackData, const Value& playlistData) {
        return {{"KVMediaLibraryService.performImport",
                 {2, databasePath, trackData, playlistData, Dictionary()}}};
    }
    static Calls completedWith(const Value& error, std::int64_t revision) {
        return {{"completionHandler", {error, revision}}};
    }
    static LogLine info(std::string message) {
        return line(LogLevel::Info, operation, std::move(message));
    }
    static LogLine started(const std::string& stream, const Value& syncParams) {
        return line(LogLevel::Warning, operation,
                    "writing incoming sync changes from stream " + stream +
                        ". params=" + syncParams.description());
    }
};

TEST_F(ChangeImport, ReadsSplitsImportsAndReportsInThisOrder) {
    const Data data = counting(250);
    const Dictionary syncParams{
        {"FormatType", "QORX"}, {"PlaylistDataLen", 100}, {"SyncItemCount", 12}};
    importData(data, syncParams);
    EXPECT_EQ(calls(),
              (Calls{{"progressHandler", {0, 12}},
                     {"ORStreamReader.initWithInputStream", {"<stream peer>", Value()}},
                     {"ORStreamReader.readAllData", {}},
                     {"WorkQueue.async", {"global.background"}},
                     {"KVMediaLibraryService.performImport",
                      {2, databasePath, part(data, 100, 250), part(data, 0, 100), Dictionary()}},
                     {"KV3Korvane.currentRevision", {}},
                     {"completionHandler", {Value(), 77}},
                     {"KV3Korvane.notifyContentsDidChange", {}}}));
    EXPECT_THAT(lines(),
                ElementsAre(started("<stream peer>", syncParams),
                            info("read 250 bytes of incoming sync data, playlistDataLen=100"),
                            info("read 150 bytes of track data. 100 bytes of playlist data"),
                            info("sync import complete. success=1, err=(null)")));
}

TEST_F(ChangeImport, WithoutAStreamNothingIsReadAndTheAnswerComesAtOnce) {
    const Dictionary syncParams{{"PlaylistDataLen", 100},
                                {"PlaylistSyncSettings", Dictionary{{"a", 1}}}};
    start(nullptr, syncParams);
    EXPECT_EQ(calls(), (Calls{{"progressHandler", {0, 0}},
                              {"KV3Korvane.currentRevision", {}},
                              {"completionHandler", {Value(), 77}}}));
    EXPECT_THAT(lines(), ElementsAre(started("(null)", syncParams)));
    EXPECT_EQ(inspector().streams.size(), 0u);
    EXPECT_FALSE(scheduler().hasWork());
}

TEST_F(ChangeImport, AnEmptyStreamHasNothingToImport) {
    importData({}, {{"PlaylistSyncSettings", Dictionary{{"a", 1}}}});
    EXPECT_EQ(calls(), (Calls{{"progressHandler", {0, 0}},
                              {"ORStreamReader.initWithInputStream", {"<stream peer>", Value()}},
                              {"ORStreamReader.readAllData", {}},
                              {"KV3Korvane.currentRevision", {}},
                              {"completionHandler", {Value(), 77}}}));
    EXPECT_THAT(lines(), ElementsAre(started("<stream peer>", Dictionary{{"PlaylistSyncSettings",
                                                                          Dictionary{{"a", 1}}}}),
                                     info("read 0 bytes of incoming sync data, playlistDataLen=0"),
                                     info("no data to import")));
    EXPECT_EQ(inspector().streams.size(), 0u);
}

TEST_F(ChangeImport, AnEmptyStreamIsEmptyWhateverLengthWasSaid) {
    importData({}, {{"PlaylistDataLen", 100}});
    EXPECT_EQ(imports(), Calls{});
    EXPECT_EQ(completions(), completedWith(Value(), 77));
}

TEST_F(ChangeImport, PlaylistsAsLongAsTheStreamLeaveNoTrackData) {
    const Data data = counting(130);
    importData(data, {{"PlaylistDataLen", 130}});
    EXPECT_EQ(imports(), importOf(Value(), data));
    EXPECT_EQ(lines()[2], info("read 0 bytes of track data. 130 bytes of playlist data"));
}

TEST_F(ChangeImport, PlaylistsWithoutLengthLeaveNoPlaylistData) {
    const Data data = counting(130);
    for (const Dictionary& syncParams : {Dictionary{}, Dictionary{{"PlaylistDataLen", 0}},
                                         Dictionary{{"PlaylistDataLen", Value()}}}) {
        importData(data, syncParams);
        EXPECT_EQ(imports(), importOf(data, Value()));
        EXPECT_EQ(lines()[2], info("read 130 bytes of track data. 0 bytes of playlist data"));
    }
}

TEST_F(ChangeImport, AStreamIsSplitAtTheEndOfThePlaylists) {
    const Data data = counting(250);
    for (const std::size_t length : {1u, 64u, 100u, 249u}) {
        importData(data, {{"PlaylistDataLen", length}});
        EXPECT_EQ(imports(), importOf(part(data, length, 250), part(data, 0, length))) << length;
    }
}

TEST_F(ChangeImport, TheCountOfItemsIsCutTo32Bits) {
    start(nullptr, {{"SyncItemCount", 4'294'967'297}});
    EXPECT_EQ(callsOf("progressHandler"), (Calls{{"progressHandler", {0, 1}}}));
    start(nullptr, {{"SyncItemCount", 4'294'967'295}});
    EXPECT_EQ(callsOf("progressHandler"), (Calls{{"progressHandler", {0, 4'294'967'295}}}));
}

TEST_F(ChangeImport, TheLengthOfThePlaylistsIsCutTo32Bits) {
    const Data data = counting(250);
    importData(data, {{"PlaylistDataLen", 4'294'967'296 + 100}});
    EXPECT_EQ(imports(), importOf(part(data, 100, 250), part(data, 0, 100)));
    EXPECT_EQ(lines()[1], info("read 250 bytes of incoming sync data, playlistDataLen=100"));
}

TEST_F(ChangeImport, PlaylistsBeyondTheStreamAreARangeFaultOnTheReadersThread) {
    for (const std::uint32_t length : {251u, 0xFFFF'FFFFu}) {
        start(streamOf(counting(250)), {{"PlaylistDataLen", length}});
        EXPECT_THROW(scheduler().runDueJobs(), std::out_of_range) << length;
        scheduler().runDueJobs();
        EXPECT_EQ(completions(), Calls{}) << length;
        EXPECT_EQ(imports(), Calls{}) << length;
        EXPECT_EQ(inspector().streams.size(), 0u) << length;
    }
}

TEST_F(ChangeImport, AFailedReadIsReportedAndImportsNothing) {
    client();
    recorder().failCall("ORStreamReader.readAllData");
    importData(counting(10), {{"PlaylistSyncSettings", Dictionary{{"a", 1}}}});
    const std::string error = "Error Domain=POSIXErrorDomain Code=5 \"Input/output error\"";
    EXPECT_EQ(calls(), (Calls{{"progressHandler", {0, 0}},
                              {"ORStreamReader.initWithInputStream", {"<stream peer>", Value()}},
                              {"ORStreamReader.readAllData", {}},
                              {"KV3Korvane.currentRevision", {}},
                              {"completionHandler", {error, 77}}}));
    EXPECT_EQ(lines().back(), line(LogLevel::Warning, operation,
                                   "failed to read incoming sync data. err=" + error));
    EXPECT_EQ(inspector().streams.size(), 0u);
}

TEST_F(ChangeImport, AFailedImportIsReportedWithTheRevisionAndTheNotice) {
    media().importService().success = false;
    media().importService().error = Error("service", 9);
    importData(counting(10));
    EXPECT_EQ(recorder().callsNamed({"completionHandler", "KV3Korvane.notifyContentsDidChange"}),
              (Calls{{"completionHandler", {"Error Domain=service Code=9", 77}},
                     {"KV3Korvane.notifyContentsDidChange", {}}}));
    EXPECT_EQ(lines().back(),
              info("sync import complete. success=0, err=Error Domain=service Code=9"));
}

TEST_F(ChangeImport, AFailureWithoutAnErrorIsReportedWithoutOne) {
    media().importService().success = false;
    importData(counting(10));
    EXPECT_EQ(completions(), completedWith(Value(), 77));
    EXPECT_EQ(lines().back(), info("sync import complete. success=0, err=(null)"));
}

TEST_F(ChangeImport, TheRevisionIsTheOneAfterTheImport) {
    media().importService().whileImporting = [this] { library().revision = 90; };
    importData(counting(10));
    EXPECT_EQ(completions(), completedWith(Value(), 90));
}

TEST_F(ChangeImport, TheReaderIsKeptUntilReadingEndsAndNoLonger) {
    media().importService().importTime = 10 * second;
    start(streamOf(counting(10)));
    EXPECT_EQ(inspector().streams.size(), 1u);
    scheduler().runDueJobs();
    EXPECT_EQ(inspector().streams.size(), 0u);
    EXPECT_EQ(imports().size(), 1u);
    EXPECT_EQ(completions(), Calls{});
    scheduler().advance(10 * second);
    EXPECT_EQ(completions(), completedWith(Value(), 77));
}

TEST_F(ChangeImport, TheFormatIsTakenForGranted) {
    importData(counting(10), {{"FormatType", "another"}});
    EXPECT_EQ(imports(), importOf(counting(10), Value()));
}

TEST_F(ChangeImport, AnImportThatCannotEvenStartHasFailed) {
    media().importService().performImportThrows = true;
    importData(counting(10));
    EXPECT_EQ(recorder().callsNamed({"completionHandler", "KV3Korvane.notifyContentsDidChange"}),
              (Calls{{"completionHandler", {"Error Domain=ORError Code=0 \"no import\"", 77}},
                     {"KV3Korvane.notifyContentsDidChange", {}}}));
}

TEST_F(ChangeImport, AClientLetGoLivesUntilItsImportIsComplete) {
    media().importService().importTime = 10 * second;
    start(streamOf(counting(10)));
    releaseClient();
    forget();
    scheduler().advance(10 * second);
    EXPECT_EQ(recorder().callsNamed({"completionHandler", "KV3Korvane.notifyContentsDidChange",
                                     "KV3Korvane.reconnectToDatabase"}),
              (Calls{{"completionHandler", {Value(), 77}},
                     {"KV3Korvane.notifyContentsDidChange", {}},
                     {"KV3Korvane.reconnectToDatabase", {}}}));
}

}  // namespace
}  // namespace sync_bundle_tests
