// What the tests rely on the doubles for.
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "tests/support/recording_platform.h"
#include "tests/support/recording_streams.h"
#include "tests/support/track_predicates.h"

namespace support {
namespace {

using testing::ElementsAre;
constexpr platform::Nanoseconds second = 1'000'000'000;

TEST(Recorder, PrintsACallAsItIsWritten) {
    std::ostringstream text;
    text << Call{"moveItem", {"/a", 5, platform::Value()}};
    EXPECT_EQ(text.str(), "moveItem(/a, 5, (null))");
}

TEST(Recorder, AFaultFiresOnTheNthCallOfItsNameOnly) {
    Recorder recorder;
    recorder.failCall("move", 2);
    EXPECT_FALSE(recorder.fails("move"));
    EXPECT_FALSE(recorder.fails("link"));
    EXPECT_TRUE(recorder.fails("move"));
    EXPECT_FALSE(recorder.fails("move"));
    EXPECT_TRUE(recorder.faultsLeft().empty());
}

TEST(Recorder, AFaultOfAnyCallFiresOnTheNthThatCanFail) {
    Recorder recorder;
    recorder.failAnyCall(2);
    EXPECT_FALSE(recorder.fails("move"));
    recorder.record("cannot fail");
    EXPECT_TRUE(recorder.fails("link"));
    EXPECT_EQ(recorder.fallibleCalls(), 2u);
}

TEST(RecordingPlatform, AFaultThatNeverFiresFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            RecordingPlatform platform;
            platform.recorder().failCall("FileSystem.linkItem", 3);
        },
        "never fired: FileSystem.linkItem, call 3");
}

class Scheduler : public testing::Test {
protected:
    Recorder _recorder;
    VirtualScheduler _scheduler{_recorder};
    std::vector<int> _order;

    platform::Job adds(int number) {
        return [this, number] { _order.push_back(number); };
    }
};

TEST_F(Scheduler, RunsJobsInTheirOrderAndDelayedOnesWhenDue) {
    const auto queue = _scheduler.makeQueue("queue", true);
    queue->asyncAfter(2 * second, adds(3));
    queue->asyncAfter(second, adds(2));
    queue->async(adds(1));
    _scheduler.runDueJobs();
    EXPECT_THAT(_order, ElementsAre(1));
    _scheduler.advance(5 * second);
    EXPECT_THAT(_order, ElementsAre(1, 2, 3));
    EXPECT_FALSE(_scheduler.hasWork());
}

TEST_F(Scheduler, AWaitRunsJobsOfOtherQueuesButNotOfABusySerialOne) {
    const auto serial = _scheduler.makeQueue("serial", true);
    const auto global = _scheduler.makeQueue("global", false);
    const auto semaphore = _scheduler.makeSemaphore(0);
    serial->async([&] {
        EXPECT_TRUE(serial->isCurrent());
        semaphore->wait();
        _order.push_back(2);
    });
    serial->async(adds(3));
    global->asyncAfter(second, [&] {
        _order.push_back(1);
        semaphore->signal();
    });
    const platform::Nanoseconds before = _scheduler.now();
    _scheduler.runDueJobs();
    EXPECT_THAT(_order, ElementsAre(1, 2, 3));
    EXPECT_EQ(_scheduler.now() - before, second);
    EXPECT_FALSE(serial->isCurrent());
}

TEST_F(Scheduler, AWaitThatNothingCanEndIsAnError) {
    EXPECT_THROW(_scheduler.makeSemaphore(0)->wait(), std::logic_error);
}

TEST_F(Scheduler, ATimerFiresAfterItsLeewayOnceResumedAndUntilReleased) {
    auto timer = _scheduler.makeTimer(_scheduler.makeQueue("queue", true));
    timer->setEventHandler(adds(1));
    timer->setTimer(_scheduler.now() + second, 2 * second, second / 2);
    _scheduler.advance(10 * second);
    EXPECT_TRUE(_order.empty());
    timer->resume();
    timer->setTimer(_scheduler.now() + second, 2 * second, second / 2);
    _scheduler.advance(second + second / 2 - 1);
    EXPECT_TRUE(_order.empty());
    _scheduler.advance(1);
    EXPECT_THAT(_order, ElementsAre(1));
    _scheduler.advance(10 * second);
    EXPECT_GT(_order.size(), 3u);
    timer.reset();
    const std::size_t fired = _order.size();
    _scheduler.advance(10 * second);
    EXPECT_EQ(_order.size(), fired);
}

TEST_F(Scheduler, JobsMayBeGivenFromAnyThread) {
    const auto queue = _scheduler.makeQueue("queue", true);
    std::thread thread([&] {
        for (int i = 0; i < 100; ++i)
            queue->async(adds(i));
    });
    while (_order.size() < 100)
        _scheduler.runDueJobs();
    thread.join();
    EXPECT_EQ(_order.back(), 99);
}

class Files : public testing::Test {
protected:
    Recorder _recorder;
    MemoryFileSystem _files{_recorder};
};

TEST_F(Files, LinksShareContentAndFailWhereSomethingIs) {
    _files.addFile("/a/file", {1, 2});
    EXPECT_EQ(_files.linkItem("/a/file", "/a/link"), std::nullopt);
    EXPECT_EQ(_files.linkItem("/a/file", "/a/link"), platform::Error::posix(EEXIST));
    EXPECT_EQ(_files.linkItem("/a/none", "/a/other"), platform::Error::posix(ENOENT));
    EXPECT_EQ(_files.linkItem("/a/file", "/b/link"), platform::Error::posix(ENOENT));
    EXPECT_EQ(_files.linkItem("/a", "/c"), platform::Error::posix(EPERM));
    EXPECT_EQ(_files.unlink("/a/file"), 0);
    EXPECT_EQ(_files.readFile("/a/link", 2, nullptr), (platform::Data{1, 2}));
    EXPECT_EQ(_files.readFile("/a/link", 1, nullptr), std::nullopt);
}

TEST_F(Files, ADirectoryMovesWithItsContent) {
    _files.addFile("/a/b/file");
    _files.addDirectory("/c");
    EXPECT_EQ(_files.moveItem("/a/b", "/c/d"), std::nullopt);
    EXPECT_THAT(_files.pathsBelow("/"), ElementsAre("a", "c", "c/d", "c/d/file"));
}

TEST_F(Files, UnlinkRefusesADirectoryAndRemovalTakesAllBelow) {
    _files.addFile("/a/b/file");
    EXPECT_EQ(_files.unlink("/a/b"), EISDIR);
    EXPECT_EQ(_files.unlink("/a/none"), ENOENT);
    EXPECT_EQ(_files.removeItem("/a"), std::nullopt);
    EXPECT_TRUE(_files.pathsBelow("/").empty());
}

TEST_F(Files, PrivateInFrontLeadsToTheSamePlace) {
    _files.addFile("/var/file");
    EXPECT_TRUE(_files.fileExists("/private/var/file"));
    EXPECT_TRUE(_files.fileExists("//var//file/"));
}

TEST_F(Files, AStreamEndsWithNothingAppended) {
    _files.addFile("/file", {1, 2, 3});
    const auto stream = _files.openInputStream("/file");
    platform::Data out;
    EXPECT_EQ(stream->read(out, 2), std::nullopt);
    EXPECT_EQ(out.size(), 2u);
    EXPECT_EQ(stream->read(out, 2), std::nullopt);
    EXPECT_EQ(stream->read(out, 2), std::nullopt);
    EXPECT_EQ(out, (platform::Data{1, 2, 3}));
    EXPECT_EQ(_files.openInputStream("/none"), nullptr);
}

class Streams : public testing::Test {
protected:
    std::shared_ptr<RecordingOutputStream> openStream() {
        auto stream = std::make_shared<RecordingOutputStream>(_platform.recorder(), "stream");
        stream->open();
        return stream;
    }
    std::unique_ptr<platform::InputStream> streamOf(platform::Data bytes) {
        return _platform.operatingSystem().fileSystem().makeInputStream(std::move(bytes));
    }

    RecordingPlatform _platform;
};

TEST_F(Streams, AnOutputStreamIsWrittenOnlyWhileOpenAndTakenOnce) {
    const auto stream = _platform.operatingSystem().fileSystem().makeMemoryOutputStream();
    const platform::Data bytes{1, 2};
    EXPECT_EQ(stream->write(bytes), platform::Error::posix(EBADF));
    stream->open();
    EXPECT_EQ(stream->write(bytes), std::nullopt);
    EXPECT_EQ(stream->write(bytes), std::nullopt);
    stream->close();
    EXPECT_EQ(stream->write(bytes), platform::Error::posix(EBADF));
    EXPECT_EQ(stream->takeData(), (platform::Data{1, 2, 1, 2}));
    EXPECT_EQ(stream->takeData(), platform::Data{});
}

TEST_F(Streams, AWriterWritesAfterTheCallHasReturnedAndTellsTheStreamsError) {
    const auto stream = openStream();
    const auto writer = ORStreamWriter::initWithOutputStream(stream, nullptr);
    std::vector<platform::OptionalError> answers;
    const auto completion = [&](const platform::OptionalError& error) { answers.push_back(error); };
    writer->writeAllData({1, 2}, completion);
    EXPECT_TRUE(stream->bytes().empty());
    _platform.scheduler().runDueJobs();
    EXPECT_EQ(stream->bytes(), (platform::Data{1, 2}));
    _platform.recorder().failCall("OutputStream.write");
    writer->writeAllData({3}, completion);
    _platform.scheduler().runDueJobs();
    EXPECT_THAT(answers, ElementsAre(std::nullopt, platform::Error::posix(EPIPE)));
}

TEST_F(Streams, AReaderReadsToTheEnd) {
    const platform::Data bytes(1000, 7);
    const auto reader = ORStreamReader::initWithInputStream(streamOf(bytes), nullptr);
    std::vector<platform::Data> answers;
    reader->readAllDataWithCompletion([&](platform::Data data, const platform::OptionalError&) {
        answers.push_back(std::move(data));
    });
    EXPECT_TRUE(answers.empty());
    _platform.scheduler().runDueJobs();
    EXPECT_THAT(answers, ElementsAre(bytes));
}

TEST_F(Streams, WhoIsReleasedBeforeItsTimeNeverCallsBack) {
    ORStreamWriter::initWithOutputStream(openStream(), nullptr)
        ->writeAllData({1}, [](const platform::OptionalError&) { ADD_FAILURE(); });
    ORStreamReader::initWithInputStream(streamOf({1}), nullptr)
        ->readAllDataWithCompletion(
            [](const platform::Data&, const platform::OptionalError&) { ADD_FAILURE(); });
    _platform.scheduler().runDueJobs();
}

TEST_F(Streams, WhoIsReleasedInItsOwnCallHasCalledBackOnce) {
    int calls = 0;
    auto reader = ORStreamReader::initWithInputStream(streamOf({1}), nullptr);
    reader->readAllDataWithCompletion([&](const platform::Data&, const platform::OptionalError&) {
        reader.reset();
        ++calls;
    });
    _platform.scheduler().runDueJobs();
    EXPECT_EQ(calls, 1);
}

TEST(FileManifests, AnswerAfterTheCallHasReturnedAlsoWhenReleased) {
    RecordingPlatform platform;
    platform.storeDownloads().manifestPaths = {"/a", "/b"};
    std::vector<std::optional<std::vector<std::string>>> answers;
    const auto ask = [&] {
        VDDownloadFileManifest::make()->getPathsForFilesWithClass(
            VDDownloadFileClassBackup, [&](const auto& paths) { answers.push_back(paths); });
    };
    ask();
    EXPECT_TRUE(answers.empty());
    platform.recorder().failCall("VDDownloadFileManifest.getPaths");
    ask();
    platform.scheduler().runDueJobs();
    EXPECT_THAT(answers,
                ElementsAre(std::optional(std::vector<std::string>{"/a", "/b"}), std::nullopt));
}

TEST(Predicates, ArePrintedAndEvaluated) {
    const KV3Predicate predicate = KV3AnyCompoundPredicate::predicateMatchingPredicates(
        {KV3AllCompoundPredicate::predicateMatchingPredicates(
             {KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(
                  KV3TrackPropertyStoreVeskaID, 0),
              KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertySyncID, 0,
                                                            KV3ComparisonNotEqual)}),
         KV3ComparisonPredicate::predicateWithProperty(KV3TrackPropertyMediaType, 6,
                                                       KV3ComparisonAnyBits)});
    EXPECT_EQ(describe(predicate), "any(all(StoreVeskaID == 0, SyncID != 0), MediaType & 6)");
    const auto valuesOf = [](TrackProperties properties) {
        return [properties](KV3TrackProperty property) {
            const auto found = properties.find(property);
            return found == properties.end() ? platform::Value() : found->second;
        };
    };
    EXPECT_FALSE(matches(predicate, valuesOf({})));
    EXPECT_TRUE(matches(predicate, valuesOf({{KV3TrackPropertySyncID, 5}})));
    EXPECT_FALSE(matches(
        predicate, valuesOf({{KV3TrackPropertySyncID, 5}, {KV3TrackPropertyStoreVeskaID, 1}})));
    EXPECT_TRUE(matches(predicate, valuesOf({{KV3TrackPropertyMediaType, 12}})));
}

TEST(Transactions, StatementsCountOnceEveryOuterOneCommits) {
    RecordingPlatform platform;
    RecordingLibrary& library = platform.library();
    const auto write = [](KV3DatabaseConnection& connection) {
        return connection.executeUpdateWithParameters("sql", {}, nullptr);
    };
    library.performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        library.performDatabaseTransactionWithBlock(write);
        return false;
    });
    EXPECT_TRUE(library.committedStatements().empty());
    library.performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        library.performDatabaseTransactionWithBlock(write);
        return true;
    });
    EXPECT_EQ(library.committedStatements().size(), 1u);
    EXPECT_THROW(library.performDatabaseTransactionWithBlock(
                     [](KV3DatabaseConnection&) -> bool { throw std::runtime_error("block"); }),
                 std::runtime_error);
    EXPECT_EQ(platform.recorder().calls().back().name, "KV3Korvane.rollback");
}

TEST(QueryResults, RowsAreEnumeratedAndTheirReadsRecorded) {
    RecordingPlatform platform;
    RecordingLibrary& library = platform.library();
    library.queryRows["sql"] = {{1, "one"}, {platform::Value(), platform::Value()}};
    std::vector<std::string> texts;
    library.databaseConnectionAllowingWrites(false, [&](KV3DatabaseConnection& connection) {
        connection.executeQuery("sql")->enumerateRowsWithBlock([&](const KV3QueryRow& row) {
            texts.push_back(std::to_string(row.int64ForColumnIndex(0)) + " " +
                            std::string(row.stringForColumnIndex(1).value_or("null")));
        });
        connection.executeQuery("other")->enumerateRowsWithBlock(
            [](const KV3QueryRow&) { FAIL(); });
    });
    EXPECT_THAT(texts, ElementsAre("1 one", "0 null"));
    EXPECT_EQ(platform.recorder().callsNamed({"KV3QueryRow.stringForColumnIndex"}).size(), 2u);
}

TEST(Chapters, AnEnumerationOfPicturesEndsWhereItIsStopped) {
    RecordingPlatform platform;
    platform.mediaLibrary().chapterArtworkCacheIDs[{9}] = {"a", "b", "c"};
    std::vector<std::string> seen;
    const auto stopAt = [&seen](std::string last) {
        return [&seen, last](const std::string& id, bool& stop) {
            seen.push_back(id);
            stop = id == last;
        };
    };
    KVTSChapterTOC::enumerateArtworkCacheIDsInFlattenedChapterData({9}, stopAt("b"));
    KVTSChapterTOC::enumerateArtworkCacheIDsInFlattenedChapterData({8}, stopAt("b"));
    EXPECT_THAT(seen, ElementsAre("a", "b"));
}

}  // namespace
}  // namespace support
