// Export sessions: whole streams, in pieces, of one moment; and what they do when writing fails.
#include <gmock/gmock.h>

#include <thread>

#include "tests/device/korvane_export/export_fixture.h"

namespace {

using namespace test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;

constexpr std::size_t PieceSize = 64u << 10;

class ExportSession : public ExportTest {
protected:
    // Begins, exports all tracks and ends. The error that an operation gave; none when only the
    // end failed.
    struct Outcome {
        bool began = false;
        platform::OptionalError error;
        bool ended = false;
    };
    Outcome exportInto(std::size_t limit) {
        stream = std::make_shared<LimitedStream>(limit);
        const auto writing = session();
        Outcome outcome;
        outcome.began = writing->begin();
        for (const Change& change : changes(0))
            if (!outcome.error)
                outcome.error = writing->exportTrack(change.pid);
        outcome.ended = writing->end();
        return outcome;
    }
};

TEST_F(ExportSession, AnEmptySessionIsAWholeStreamWithAHeader) {
    const Exported exported = exportAll();
    EXPECT_EQ(exported.header.purpose(), qorx::Header::CHANGES);
    EXPECT_EQ(exported.header.exporter_uid(), library->uid());
    EXPECT_EQ(exported.header.importer_uid(), "");
    EXPECT_FALSE(exported.header.complete());
    EXPECT_TRUE(exported.tracks.empty());
}

TEST_F(ExportSession, TheHeaderNamesThePeerThatWasToldBeforeTheBeginning) {
    library->exportTarget().set("peer-1");
    const auto writing = session();
    writing->begin();
    library->exportTarget().set("");
    writing->end();
    EXPECT_EQ(readBack(stream->bytes).header.importer_uid(), "peer-1");
    EXPECT_EQ(exportAll().header.importer_uid(), "");
}

TEST_F(ExportSession, EntriesThatAreNotThereAreLeftOut) {
    addTracks(1);
    const auto writing = session();
    ASSERT_TRUE(writing->begin());
    for (const std::int64_t pid : {std::int64_t{0}, std::int64_t{-5}, INT64_MIN, INT64_MAX}) {
        EXPECT_FALSE(writing->exportTrack(pid));
        EXPECT_FALSE(writing->exportTrackDeleted(pid));
        EXPECT_FALSE(writing->exportPlaylist(pid));
        EXPECT_FALSE(writing->exportPlaylistDeleted(pid));
    }
    EXPECT_FALSE(writing->exportTrackDeleted(1000));
    ASSERT_TRUE(writing->end());
    const Exported exported = readBack(stream->bytes);
    EXPECT_THAT(exported.tracks, IsEmpty());
    EXPECT_THAT(exported.playlists, IsEmpty());
    EXPECT_THAT(exported.deletions, IsEmpty());
}

TEST_F(ExportSession, TracksInAndOutOfTheirOrderAreAllThere) {
    addTracks(60);
    execute("DELETE FROM item WHERE item_pid IN (12000, 13000, 40000)");
    std::vector<std::int64_t> asked;
    for (std::int64_t number = 1; number <= 60; ++number)
        asked.push_back(number * 1000);
    asked.insert(asked.end(),
                 {5000,  4000,  60000, 60000, 1000,  2000,  3000,  4000,  5000,  6000,
                  30000, 31000, 32000, 33000, 34000, 35000, 36000, 10000, 60000, 99000});
    const auto writing = session();
    ASSERT_TRUE(writing->begin());
    for (const std::int64_t pid : asked)
        EXPECT_FALSE(writing->exportTrack(pid));
    ASSERT_TRUE(writing->end());
    std::erase_if(asked, [](std::int64_t pid) {
        return pid == 12000 || pid == 13000 || pid == 40000 || pid == 99000;
    });
    std::vector<std::int64_t> exported;
    for (const qorx::Track& track : readBack(stream->bytes).tracks) {
        exported.push_back(track.persistent_id());
        EXPECT_EQ(track.title(), "Title " + std::to_string(track.sync_id()));
    }
    EXPECT_EQ(exported, asked);
}

TEST_F(ExportSession, AllRecordsAreOfTheMomentOfTheFirst) {
    addTracks(20);
    const auto writing = session();
    ASSERT_TRUE(writing->begin());
    execute("UPDATE item_extra SET title = 'before the first'");
    EXPECT_FALSE(writing->exportTrack(1000));
    execute("UPDATE item_extra SET title = 'after it'");
    deleteTrack(3000);
    EXPECT_FALSE(writing->exportTrack(2000));
    EXPECT_FALSE(writing->exportTrack(3000));
    EXPECT_FALSE(writing->exportTrackDeleted(3000));
    ASSERT_TRUE(writing->end());
    const Exported exported = readBack(stream->bytes);
    ASSERT_EQ(exported.tracks.size(), 3u);
    for (const qorx::Track& track : exported.tracks)
        EXPECT_EQ(track.title(), "before the first");
    EXPECT_THAT(exported.deletions, IsEmpty());
}

TEST_F(ExportSession, TheStreamGetsPiecesOfLimitedSizeWhileRecordsAreWritten) {
    addTracks(6000);
    const auto writing = session();
    ASSERT_TRUE(writing->begin());
    for (const Change& change : changes(0))
        ASSERT_FALSE(writing->exportTrack(change.pid));
    EXPECT_GT(stream->pieces.size(), 3u);
    const std::size_t beforeTheEnd = stream->bytes.size();
    ASSERT_TRUE(writing->end());
    EXPECT_LT(stream->bytes.size() - beforeTheEnd, PieceSize);
    EXPECT_THAT(stream->pieces, Each(Le(PieceSize + 1024)));
    EXPECT_EQ(readBack(stream->bytes).tracks.size(), 6000u);
}

TEST_F(ExportSession, AStreamThatFailsAtAnyByteNeverHoldsAWholeExport) {
    addTracks(10);
    ASSERT_TRUE(exportInto(SIZE_MAX).ended);
    const std::size_t size = stream->bytes.size();
    for (std::size_t limit = 0; limit < size; ++limit) {
        EXPECT_FALSE(exportInto(limit).ended) << limit;
        EXPECT_FALSE(isWhole(stream->bytes)) << limit;
    }
    EXPECT_TRUE(exportInto(size).ended);
    EXPECT_TRUE(isWhole(stream->bytes));
}

TEST_F(ExportSession, AnErrorOfTheStreamIsTheErrorOfTheRecordAndOfAllThatFollow) {
    addTracks(3000);
    for (const std::size_t limit : {std::size_t{0}, PieceSize + 1024}) {
        const Outcome outcome = exportInto(limit);
        EXPECT_TRUE(outcome.began);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->code, LimitedStream::FailureCode);
        EXPECT_FALSE(outcome.ended);
    }
    stream = std::make_shared<LimitedStream>(0);
    const auto writing = session();
    writing->begin();
    platform::OptionalError first;
    for (const Change& change : changes(0))
        if (!first)
            first = writing->exportTrack(change.pid);
    ASSERT_TRUE(first);
    EXPECT_EQ(writing->exportTrack(1000), first);
    EXPECT_EQ(writing->exportPlaylistDeleted(1000), first);
}

TEST_F(ExportSession, ADatabaseThatFailsIsAnErrorAndLeavesTheStreamUnfinished) {
    addTracks(1);
    execute("DROP TABLE play_statistics");
    const auto writing = session();
    EXPECT_TRUE(writing->begin());
    const auto error = writing->exportTrack(1000);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "SqliteErrorDomain");
    EXPECT_FALSE(writing->end());
    EXPECT_FALSE(isWhole(stream->bytes));
}

TEST_F(ExportSession, NothingIsWrittenBeforeTheBeginningAndAfterTheEnd) {
    addTracks(1);
    const auto writing = session();
    EXPECT_EQ(writing->exportTrack(1000), platform::Error::posix(EBADF));
    EXPECT_FALSE(writing->end());
    EXPECT_THAT(stream->bytes, IsEmpty());
    EXPECT_TRUE(writing->begin());
    EXPECT_FALSE(writing->begin());
    EXPECT_TRUE(writing->end());
    const std::size_t size = stream->bytes.size();
    EXPECT_EQ(writing->exportTrack(1000), platform::Error::posix(EBADF));
    EXPECT_FALSE(writing->end());
    EXPECT_EQ(stream->bytes.size(), size);
}

TEST_F(ExportSession, ReconnectingWaitsForARunningOne) {
    addTracks(2);
    const auto writing = session();
    ASSERT_TRUE(writing->begin());
    EXPECT_FALSE(writing->exportTrack(1000));
    std::jthread reconnecting([&] { library->reconnectToDatabase(); });
    EXPECT_FALSE(writing->exportTrack(2000));
    EXPECT_TRUE(writing->end());
    reconnecting.join();
    EXPECT_EQ(readBack(stream->bytes).tracks.size(), 2u);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
}

TEST_F(ExportSession, OneThatIsGivenUpLetsGoOfTheLibrary) {
    addTracks(2);
    {
        const auto writing = session();
        ASSERT_TRUE(writing->begin());
        EXPECT_FALSE(writing->exportTrack(1000));
    }
    library->reconnectToDatabase();
    EXPECT_FALSE(isWhole(stream->bytes));
}

}  // namespace
