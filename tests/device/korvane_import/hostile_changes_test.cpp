// Change streams that are damaged or none: refused whole.
#include <gtest/gtest.h>

#include "common/qorx/format.h"
#include "tests/common/qorx/qorx_streams.h"
#include "tests/device/korvane_import/hostile_fixture.h"

namespace {

using namespace test;

platform::Data someTracks() {
    const auto track = [](std::int64_t pid) {
        qorx::Track record;
        record.set_persistent_id(pid);
        record.set_title("Title");
        return record;
    };
    qorx::Deletion deletion;
    deletion.set_persistent_id(77);
    deletion.set_global_id(100'001);
    deletion.set_deleted_ms(INT64_MAX);
    return sealedTracks("peer", {track(1000), track(2000), track(3000)}, {deletion});
}

platform::Data somePlaylists() {
    qorx::Playlist playlist;
    playlist.set_persistent_id(9);
    playlist.set_name("Name");
    playlist.add_items()->set_persistent_id(1000);
    playlist.add_items()->set_persistent_id(4);
    qorx::Deletion deletion;
    deletion.set_entity(qorx::Deletion::PLAYLIST);
    deletion.set_persistent_id(78);
    deletion.set_global_id(79);
    return sealedPlaylists("peer", {playlist}, {deletion});
}

platform::Data cut(const platform::Data& whole, std::size_t length) {
    return {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)};
}

platform::Data flipped(platform::Data bytes, std::size_t at) {
    bytes[at] ^= static_cast<std::uint8_t>(1u << (at % 8));
    return bytes;
}

// Begins as a peer's changes do.
qorx_streams::RawStream peersStream() {
    qorx::Record header = qorx_streams::headerRecord();
    header.mutable_header()->set_purpose(qorx::Header::CHANGES);
    header.mutable_header()->set_exporter_uid("peer");
    return std::move(qorx_streams::RawStream().record(header));
}

TEST_F(HostileChanges, AStreamThatEndsAnywhereIsRefused) {
    const platform::Data tracks = someTracks();
    for (std::size_t length = 0; length < tracks.size(); ++length) {
        expectRefused(cut(tracks, length));
    }
    const platform::Data playlists = somePlaylists();
    for (std::size_t length = 0; length < playlists.size(); ++length) {
        expectRefused(tracks, cut(playlists, length));
    }
}

TEST_F(HostileChanges, AStreamWithAnyByteFlippedIsRefused) {
    const platform::Data tracks = someTracks();
    for (std::size_t at = 0; at < tracks.size(); ++at) {
        expectRefused(flipped(tracks, at));
    }
    const platform::Data playlists = somePlaylists();
    for (std::size_t at = 0; at < playlists.size(); ++at) {
        expectRefused(tracks, flipped(playlists, at));
    }
}

TEST_F(HostileChanges, BytesThatWereChangedBeforeTheChecksumWasMadeAreRefusedOrTakenWhole) {
    const auto sealedAnew = [](platform::Data bytes) {
        bytes.resize(bytes.size() - common::QorxChecksumSize);
        return qorx_streams::sealed(bytes);
    };
    const platform::Data tracks = someTracks();
    const platform::Data playlists = somePlaylists();
    int refused = 0;
    int taken = 0;
    const auto tryImport = [&](const platform::Data& someTracks,
                               const platform::Data& somePlaylists) {
        TestDevice fresh;
        const std::string empty = fresh.dump();
        const ImportResult result = fresh.importData(someTracks, somePlaylists);
        ASSERT_EQ(result.calls, 1);
        if (!result.success) {
            ++refused;
            EXPECT_EQ(fresh.dump(), empty);
            return;
        }
        ++taken;
        EXPECT_EQ(fresh.number("SELECT items FROM row_count"),
                  fresh.number("SELECT count(*) FROM item"));
        EXPECT_EQ(fresh.number("SELECT count(*) FROM item"), 3);
    };
    // Each wants a library of its own; the fuzzer tries the bytes between.
    constexpr std::size_t Step = 3;
    for (std::size_t at = 0; at < tracks.size() - common::QorxChecksumSize; at += Step) {
        tryImport(sealedAnew(flipped(tracks, at)), playlists);
    }
    for (std::size_t at = 0; at < playlists.size() - common::QorxChecksumSize; at += Step) {
        tryImport(tracks, sealedAnew(flipped(playlists, at)));
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(taken, 0);
}

TEST_F(HostileChanges, LengthsBeyondTheEndAndBeyondAllLimitsAreRefused) {
    for (const std::uint64_t length :
         {std::uint64_t{100}, std::uint64_t{common::QorxRecordLimit},
          std::uint64_t{common::QorxRecordLimit} + 1, std::uint64_t{1} << 40, UINT64_MAX}) {
        expectRefused(peersStream().length(length).raw({1, 2, 3}).finish());
        // Inside a record: a track, and in it a title.
        expectRefused(peersStream()
                          .raw({6, qorx::Record::kTrackFieldNumber << 3 | 2, 4,
                                qorx::Track::kTitleFieldNumber << 3 | 2})
                          .length(length)
                          .finish());
    }
}

TEST_F(HostileChanges, AHundredMegabytesOfOneStringAreRefused) {
    constexpr std::size_t Size = 100'000'000;
    qorx::Record record;
    *record.mutable_track() = track(5);
    record.mutable_track()->set_title(std::string(Size, 't'));
    expectRefused(peersStream().record(record).record(qorx_streams::endRecord(1)).finish());
}

TEST_F(HostileChanges, ADamagedSectionRefusesTheGoodOneToo) {
    qorx::Playlist playlist;
    playlist.set_persistent_id(9);
    platform::Data damaged = sealedPlaylists("peer", {playlist});
    damaged.back() ^= 1;
    expectRefused(someTracks(), damaged);
}

TEST_F(HostileChanges, WhatIsNoChangeOfAnotherDeviceIsRefused) {
    expectRefused(std::nullopt);
    expectRefused(sealedTracks(device.uid(), {track(1)}));
    expectRefused(sealedTracks("", {track(1)}));
    expectRefused(sealedTracks(std::string(10'000, 'u'), {track(1)}));
    expectRefused(sealedTracks("one", {track(1)}), sealedPlaylists("another", {}));
    expectRefused(sealedTracks("peer", {track(0)}));
    expectRefused(sealedTracks("peer", {track(5), track(5)}));
    expectRefused(std::nullopt, sealedPlaylists("peer", {qorx::Playlist()}));
    expectRefused(std::nullopt, sealedPlaylists("peer", {playlist(5, {}), playlist(5, {})}));
    expectRefused(sealedPlaylists("peer", {playlist(5, {})}));
    expectRefused(std::nullopt, someTracks());
    HostData data;
    const std::string host = data.bytes();
    expectRefused(platform::Data(host.begin(), host.end()));
}

TEST_F(HostileChanges, ACancelLeavesTheLibraryAsItWas) {
    device.service().cancelImportOperation(KV3SourceSync, [] {});
    expectRefused(someTracks());
    device.service().resetCancel();
    EXPECT_TRUE(device.importData(someTracks(), std::nullopt).success);
}

}  // namespace
