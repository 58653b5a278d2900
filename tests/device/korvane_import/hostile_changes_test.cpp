// Change streams that mean harm: refused whole, or taken to the letter.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/device/korvane_import/exchange_fixture.h"

namespace {

using namespace test;

class HostileChanges : public testing::Test {
protected:
    void SetUp() override {
        HostData data;
        data.add(1, "Mine");
        device.syncWith(data);
        before = device.dump();
    }
    static qorx::Track track(std::int64_t pid) {
        qorx::Track record;
        record.set_persistent_id(pid);
        record.set_global_id(pid);
        record.set_added_ms(5);
        record.set_title("T");
        return record;
    }
    static platform::Data someTracks() {
        std::vector<qorx::Track> records;
        for (int i = 1; i <= 3; ++i) {
            records.push_back(track(i * 1000));
        }
        qorx::Deletion deletion;
        deletion.set_persistent_id(77);
        deletion.set_global_id(100'001);
        deletion.set_deleted_ms(INT64_MAX);
        return sealedTracks("peer", records, {deletion});
    }
    void expectRefused(std::optional<platform::Data> tracks,
                       std::optional<platform::Data> playlists = std::nullopt) {
        const ImportResult result = device.importData(std::move(tracks), std::move(playlists));
        EXPECT_EQ(result.calls, 1);
        EXPECT_FALSE(result.success);
        ASSERT_TRUE(result.error);
        EXPECT_FALSE(result.error->text().empty());
        EXPECT_EQ(device.dump(), before);
    }

    const google::protobuf::LogSilencer silence;
    TestDevice device;
    std::string before;
};

TEST_F(HostileChanges, AStreamThatEndsAnywhereIsRefused) {
    const platform::Data whole = someTracks();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        expectRefused(platform::Data(whole.begin(), whole.begin() + static_cast<long>(length)));
    }
}

TEST_F(HostileChanges, AStreamWithAnyByteFlippedIsRefused) {
    const platform::Data whole = someTracks();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        platform::Data damaged = whole;
        damaged[at] ^= static_cast<std::uint8_t>(1u << (at % 8));
        expectRefused(damaged);
    }
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
    expectRefused(sealedPlaylists("peer", {qorx::Playlist()}));
    HostData data;
    const std::string host = data.bytes();
    expectRefused(platform::Data(host.begin(), host.end()));
}

TEST_F(HostileChanges, ExtremeNumbersAreTakenAndComeToRest) {
    qorx::Track record = track(INT64_MIN);
    record.set_sync_id(INT64_MAX);
    record.set_own_id(device.pidOf(100'001));  // nobody said that it is ours
    record.set_media_type(UINT32_MAX);
    record.set_total_time_ms(UINT64_MAX);
    record.set_date_added(INT64_MIN);
    record.set_added_ms(INT64_MAX);
    record.set_metadata_changed_ms(INT64_MIN);
    record.mutable_rating()->set_changed_ms(INT64_MAX);
    record.mutable_bookmark()->set_position_ms(UINT64_MAX);
    for (std::uint32_t field : {0u, 6u, 63u, 64u, UINT32_MAX}) {
        qorx::FieldChange& change = *record.add_field_changes();
        change.set_field(field);
        change.set_changed_ms(INT64_MAX);
    }
    qorx::PlayStatistics& plays = *record.add_plays();
    plays.set_origin_uid("o");
    plays.set_play_count(UINT64_MAX);
    plays.set_last_played_ms(INT64_MIN);
    qorx::Playlist list;
    list.set_persistent_id(INT64_MAX);
    list.set_global_id(-1);
    list.set_items_changed_ms(INT64_MAX);
    for (const std::int64_t id : {INT64_MIN, INT64_MAX, std::int64_t{0}}) {
        list.add_items()->set_persistent_id(id);
    }
    const platform::Data tracks = sealedTracks("peer", {record});
    const platform::Data playlists = sealedPlaylists("peer", {list});
    ASSERT_TRUE(device.importData(tracks, playlists).success);
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 2);
    const std::int64_t revision = device.revision();
    const std::string after = device.dump();
    ASSERT_TRUE(device.importData(tracks, playlists).success);
    EXPECT_EQ(device.revision(), revision);
    EXPECT_EQ(device.dump(), after);
}

TEST_F(HostileChanges, APlaylistThatHoldsItselfHoldsAnEntryWithoutATrack) {
    qorx::Playlist list;
    list.set_persistent_id(42);
    list.set_global_id(43);
    list.add_items()->set_persistent_id(42);
    ASSERT_TRUE(device.importData(std::nullopt, sealedPlaylists("peer", {list})).success);
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item WHERE item_pid = 0"), 1);
}

TEST_F(HostileChanges, RecordsThatReferToNothingAreTaken) {
    std::vector<qorx::Deletion> deletions(5'000);
    std::int64_t id = 1'000'000;
    for (qorx::Deletion& deletion : deletions) {
        deletion.set_persistent_id(++id);
        deletion.set_global_id(id);
        deletion.set_deleted_ms(9);
    }
    qorx::Playlist list;
    list.set_persistent_id(42);
    for (int i = 0; i < 100'000; ++i) {
        list.add_items()->set_persistent_id(++id);
    }
    ASSERT_TRUE(
        device.importData(sealedTracks("peer", {}, deletions), sealedPlaylists("peer", {list}))
            .success);
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item"), 100'000);
}

TEST_F(HostileChanges, ACancelLeavesTheLibraryAsItWas) {
    device.service().cancelImportOperation(KV3SourceSync, [] {});
    expectRefused(someTracks());
    device.service().resetCancel();
    EXPECT_TRUE(device.importData(someTracks(), std::nullopt).success);
}

}  // namespace
