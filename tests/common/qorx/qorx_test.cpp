#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/message_differencer.h>

#include "tests/common/qorx/qorx_streams.h"

namespace {

using namespace qorx_streams;
using common::QorxErrorDamaged;
using common::QorxErrorNewerVersion;
using common::QorxErrorTooLarge;
using common::QorxReader;
using common::QorxWriter;
using google::protobuf::util::MessageDifferencer;

std::int64_t codeOf(const platform::OptionalError& error) {
    if (!error) {
        return 0;
    }
    EXPECT_EQ(error->domain, common::QorxErrorDomain);
    return error->code;
}

std::string textOf(const platform::OptionalError& error) {
    return error ? error->text() : "";
}

TEST(Qorx, WhatIsWrittenIsReadBack) {
    const Bytes bytes = sample();
    for (const std::size_t piece : {1u, 7u, 100'000u}) {
        QorxReader reader(from(bytes, piece));
        const Outcome outcome = readAll(reader);
        ASSERT_EQ(textOf(outcome.error), "");
        ASSERT_EQ(outcome.records.size(), 4u);
        EXPECT_EQ(reader.header()->exporter_uid(), "host-1");
        EXPECT_TRUE(MessageDifferencer::Equals(outcome.records[1].track(), track(-12, "Zwölf")));
        EXPECT_EQ(outcome.records[2].playlist().items(1).sync_id(), -12);
        EXPECT_EQ(outcome.records[3].deletion().sync_id(), 13);
        EXPECT_EQ(reader.counts().tracks(), 2u);
    }
}

TEST(Qorx, ManyRecordsPassThroughTheBuffersWhole) {
    Bytes bytes;
    QorxWriter writer(into(bytes));
    writer.begin({});
    constexpr int Count = 20'000;
    for (int i = 0; i < Count; ++i) {
        ASSERT_FALSE(writer.write(track(i, std::string(static_cast<std::size_t>(i % 97), 'x'))));
    }
    ASSERT_FALSE(writer.end());
    QorxReader reader(from(bytes, 4096));
    google::protobuf::Arena arena;
    int next = 0;
    while (const qorx::Record* record = reader.next(arena)) {
        ASSERT_EQ(record->track().sync_id(), next++);
    }
    EXPECT_FALSE(reader.error());
    EXPECT_EQ(next, Count);
}

TEST(Qorx, AStreamCutAtAnyByteIsRefused) {
    const Bytes bytes = sample();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(codeOf(readAll(cut).error), QorxErrorDamaged) << size;
        QorxReader streaming(from(cut, 3));
        EXPECT_EQ(codeOf(readAll(streaming).error), QorxErrorDamaged) << size;
    }
}

TEST(Qorx, AStreamWithAnyByteChangedIsRefused) {
    const google::protobuf::LogSilencer silence;
    const Bytes bytes = sample();
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const std::uint8_t flip : {0x01, 0x10, 0x80, 0xff}) {
            Bytes changed = bytes;
            changed[at] ^= flip;
            EXPECT_TRUE(readAll(changed).error) << at << " " << int(flip);
        }
    }
}

TEST(Qorx, StreamsThatMayFollowEachOtherAreReadOneByOne) {
    const Bytes one = sample();
    Bytes both = one;
    both.insert(both.end(), one.begin(), one.end());
    for (const std::size_t piece : {1u, 100'000u}) {
        QorxReader reader(from(both, piece));
        reader.letOthersFollow();
        EXPECT_FALSE(reader.beginNext()) << "not at the end yet";
        EXPECT_EQ(readAll(reader).records.size(), 4u);
        EXPECT_EQ(reader.position(), one.size());
        ASSERT_TRUE(reader.beginNext());
        EXPECT_EQ(reader.header()->exporter_uid(), "host-1");
        EXPECT_EQ(readAll(reader).records.size(), 4u);
        EXPECT_EQ(reader.counts().tracks(), 2u);
        EXPECT_FALSE(reader.beginNext());
        EXPECT_FALSE(reader.error());
    }
}

TEST(Qorx, AStreamThatFollowsIsCheckedLikeTheFirst) {
    Bytes both = sample();
    const Bytes second = sample();
    both.insert(both.end(), second.begin(), second.end());
    both.back() ^= 1;
    QorxReader reader(both);
    reader.letOthersFollow();
    EXPECT_FALSE(readAll(reader).error);
    ASSERT_TRUE(reader.beginNext());
    EXPECT_THAT(textOf(readAll(reader).error), testing::HasSubstr("checksum"));
}

TEST(Qorx, NothingMayFollowTheChecksum) {
    Bytes bytes = sample();
    bytes.push_back(0);
    EXPECT_THAT(textOf(readAll(bytes).error), testing::HasSubstr("follows"));
}

TEST(Qorx, ARecordAfterTheEndIsRefused) {
    const Bytes bytes =
        RawStream().record(headerRecord()).record(endRecord(0)).record(trackRecord(1)).finish();
    EXPECT_EQ(codeOf(readAll(bytes).error), QorxErrorDamaged);
}

TEST(Qorx, CountsThatAreNotThoseOfTheStreamAreRefused) {
    for (const qorx::Record& end :
         {endRecord(0), endRecord(2), endRecord(1, 1), endRecord(1, 0, 1)}) {
        const Bytes bytes =
            RawStream().record(headerRecord()).record(trackRecord(1)).record(end).finish();
        EXPECT_THAT(textOf(readAll(bytes).error), testing::HasSubstr("counts"));
    }
}

TEST(Qorx, AStreamWithoutAHeaderIsRefused) {
    const Bytes bytes = RawStream().record(trackRecord(1)).record(endRecord(1)).finish();
    EXPECT_THAT(textOf(readAll(bytes).error), testing::HasSubstr("no header"));
}

TEST(Qorx, ASecondHeaderIsRefused) {
    const Bytes bytes =
        RawStream().record(headerRecord()).record(headerRecord()).record(endRecord(0)).finish();
    EXPECT_THAT(textOf(readAll(bytes).error), testing::HasSubstr("second header"));
}

TEST(Qorx, AnEmptyStreamOfRecordsIsWhole) {
    const Bytes bytes = RawStream().record(headerRecord()).record(endRecord(0)).finish();
    EXPECT_FALSE(readAll(bytes).error);
}

TEST(Qorx, RecordsOfUnknownKindsAreSkipped) {
    // Field 9, length-delimited, three bytes; and field 1000 with a varint.
    const Bytes bytes = RawStream()
                            .record(headerRecord())
                            .length(5)
                            .raw({9 << 3 | 2, 3, 0xff, 0xff, 0xff})
                            .record(trackRecord(1))
                            .length(3)
                            .raw({0xc0, 0x3e, 0x01})
                            .length(0)
                            .record(endRecord(1))
                            .finish();
    const Outcome outcome = readAll(bytes);
    ASSERT_EQ(textOf(outcome.error), "");
    EXPECT_EQ(outcome.records.size(), 1u);
}

TEST(Qorx, FieldsThatAreNotKnownAreSkipped) {
    qorx::Record record = trackRecord(5);
    record.mutable_track()
        ->GetReflection()
        ->MutableUnknownFields(record.mutable_track())
        ->AddVarint(900, 1);
    const Bytes bytes =
        RawStream().record(headerRecord()).record(record).record(endRecord(1)).finish();
    const Outcome outcome = readAll(bytes);
    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(outcome.records.at(0).track().sync_id(), 5);
}

TEST(Qorx, ANewerVersionIsRefusedByItsNumber) {
    Bytes bytes = sample();
    bytes[4] = 9;
    const Outcome outcome = readAll(bytes);
    EXPECT_EQ(codeOf(outcome.error), QorxErrorNewerVersion);
    EXPECT_THAT(textOf(outcome.error), testing::HasSubstr("version 9"));
}

TEST(Qorx, ALengthBeyondTheEndIsRefusedWithoutTakingItsMemory) {
    const Bytes bytes = RawStream().record(headerRecord()).length(16u << 20).raw({1, 2, 3}).bytes();
    QorxReader reader(from(bytes, 100));
    EXPECT_EQ(codeOf(readAll(reader).error), QorxErrorDamaged);
}

TEST(Qorx, ALengthBeyondTheLimitIsRefused) {
    for (const std::uint64_t length :
         {std::uint64_t{(16u << 20) + 1}, std::uint64_t{1} << 28, UINT64_MAX}) {
        const Bytes bytes = RawStream().record(headerRecord()).length(length).raw({1}).finish();
        EXPECT_EQ(codeOf(readAll(bytes).error), QorxErrorTooLarge) << length;
    }
}

TEST(Qorx, TheCallersLimitsHold) {
    const Bytes bytes = sample();
    QorxReader small(from(bytes, 10), {.totalBytes = bytes.size() - 1});
    EXPECT_EQ(codeOf(readAll(small).error), QorxErrorTooLarge);
    QorxReader smallBuffer(bytes, {.totalBytes = bytes.size() - 1});
    EXPECT_EQ(codeOf(readAll(smallBuffer).error), QorxErrorTooLarge);
    QorxReader few(bytes, {.records = 5});
    EXPECT_EQ(codeOf(readAll(few).error), QorxErrorTooLarge);
    QorxReader enough(bytes, {.totalBytes = bytes.size(), .records = 6});
    EXPECT_FALSE(readAll(enough).error);
}

TEST(Qorx, APlaylistOfTooManyEmptyItemsIsRefusedBeforeItIsBuilt) {
    // Two bytes each: as objects they would take thirty times as much.
    constexpr std::size_t Items = 2'000'000;
    Bytes body;
    for (std::size_t i = 0; i < Items; ++i) {
        body.insert(body.end(), {9 << 3 | 2, 0});
    }
    RawStream stream;
    stream.record(headerRecord());
    stream.length(1 + 4 + body.size()).raw({3 << 3 | 2}).length(body.size()).raw(body);
    stream.record(endRecord(0, 1));
    google::protobuf::Arena arena;
    const Bytes bytes = stream.finish();
    QorxReader reader(bytes);
    EXPECT_EQ(reader.next(arena), nullptr);
    EXPECT_EQ(codeOf(reader.error()), QorxErrorDamaged);
    EXPECT_LT(arena.SpaceAllocated(), 1u << 20);
}

TEST(Qorx, ALongPlaylistPasses) {
    qorx::Playlist playlist;
    for (int i = 0; i < 300'000; ++i) {
        playlist.add_items()->set_sync_id(i + 1);
    }
    Bytes bytes;
    QorxWriter writer(into(bytes));
    writer.begin({});
    ASSERT_FALSE(writer.write(playlist));
    writer.end();
    const Outcome outcome = readAll(bytes);
    ASSERT_EQ(textOf(outcome.error), "");
    EXPECT_EQ(outcome.records.at(0).playlist().items_size(), 300'000);
}

TEST(Qorx, BytesThatAreNoUTF8AreRefusedInText) {
    const google::protobuf::LogSilencer silence;
    Bytes bytes = RawStream()
                      .record(headerRecord())
                      .record([] {
                          qorx::Record record;
                          record.mutable_track()->set_title("\xff\xfe");
                          return record;
                      }())
                      .record(endRecord(1))
                      .finish();
    EXPECT_EQ(codeOf(readAll(bytes).error), QorxErrorDamaged);
}

TEST(Qorx, AFailureOfTheSourceIsPassedOn) {
    const Bytes bytes = sample();
    QorxReader reader([](std::span<std::uint8_t>, platform::OptionalError* error) {
        *error = platform::Error::posix(EIO);
        return std::size_t{0};
    });
    EXPECT_EQ(readAll(reader).error, platform::Error::posix(EIO));
}

TEST(Qorx, AFailureOfTheSinkStaysTheAnswer) {
    int calls = 0;
    QorxWriter writer([&](std::span<const std::uint8_t>) -> platform::OptionalError {
        ++calls;
        return platform::Error::posix(ENOSPC);
    });
    writer.begin({});
    platform::OptionalError first;
    for (int i = 0; i < 10'000 && !first; ++i) {
        first = writer.write(track(i, "A title of some length"));
    }
    EXPECT_EQ(first, platform::Error::posix(ENOSPC));
    EXPECT_EQ(writer.end(), platform::Error::posix(ENOSPC));
    EXPECT_EQ(calls, 1);
}

TEST(Qorx, ARecordTooLargeToWriteIsRefusedAlone) {
    Bytes bytes;
    QorxWriter writer(into(bytes));
    writer.begin({});
    EXPECT_EQ(codeOf(writer.write(track(1, std::string(17u << 20, 'x')))), QorxErrorTooLarge);
    // Smaller, and still more than a reader takes.
    qorx::Track manyParts;
    for (std::size_t i = 0; i <= common::QorxElementLimit; ++i) {
        manyParts.add_plays()->set_origin_uid("123456");
    }
    EXPECT_EQ(codeOf(writer.write(manyParts)), QorxErrorTooLarge);
    EXPECT_FALSE(writer.write(track(2, "Two")));
    EXPECT_FALSE(writer.end());
    const Outcome outcome = readAll(bytes);
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ(outcome.records.size(), 1u);
}

TEST(Qorx, OneKindIsHandedOutAndTheOthersAreCounted) {
    const Bytes bytes = sample();
    QorxReader reader(bytes);
    reader.handOutOnly(qorx::Record::kPlaylist);
    const Outcome outcome = readAll(reader);
    ASSERT_FALSE(outcome.error);
    ASSERT_EQ(outcome.records.size(), 1u);
    EXPECT_EQ(outcome.records[0].playlist().name(), "Both");
    EXPECT_EQ(reader.counts().tracks(), 2u);
}

TEST(Qorx, VerifyingSumsTheStreamUp) {
    const Bytes bytes = sample();
    platform::OptionalError error;
    QorxReader reader(bytes);
    const auto summary = common::verifyQorx(reader, &error);
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->header.purpose(), qorx::Header::HOST_DATA);
    EXPECT_EQ(summary->counts.tracks(), 2u);
    EXPECT_EQ(summary->counts.playlists(), 1u);
    EXPECT_EQ(summary->counts.deletions(), 1u);
    const Bytes shorter(bytes.begin(), bytes.end() - 1);
    QorxReader cut(shorter);
    EXPECT_FALSE(common::verifyQorx(cut, &error));
    EXPECT_EQ(codeOf(error), QorxErrorDamaged);
}

}  // namespace
