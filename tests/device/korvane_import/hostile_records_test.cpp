// Change streams that are whole and hold what no device of ours would send: taken to the letter,
// within bounds, and handed on.
#include <gtest/gtest.h>
#include <malloc.h>

#include <fstream>

#include "device/korvane/owner_edits.h"
#include "tests/device/korvane_import/hostile_fixture.h"

namespace {

using namespace test;

using HostileRecords = HostileChanges;

constexpr std::int64_t ExtremeIDs[] = {INT64_MIN, INT64_MIN + 1, -1, 1, INT64_MAX - 1, INT64_MAX};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool MeasuresMemory = false;
#else
constexpr bool MeasuresMemory = true;
#endif

// The kernel's mark of this process's highest resident memory, begun anew.
class PeakMemory {
public:
    PeakMemory() {
        ::malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << "5";
        _before = highestMiB();
    }
    double grownMiB() const { return highestMiB() - _before; }

private:
    static double highestMiB() {
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmHWM:")) {
                return std::stod(line.substr(6)) / 1024;
            }
        }
        return 0;
    }

    double _before = 0;
};

TEST_F(HostileRecords, ExtremeNumbersAreTakenAndTravelOn) {
    qorx::Track record = track(INT64_MIN);
    record.set_sync_id(INT64_MAX);
    record.set_own_id(device.pidOf(100'001));  // nobody said that it is ours
    record.set_media_type(UINT32_MAX);
    record.set_year(UINT32_MAX);
    record.set_track_number(UINT32_MAX);
    record.set_total_time_ms(UINT64_MAX);
    record.set_total_size(UINT64_MAX);
    record.set_date_added(INT64_MIN);
    record.set_release_date(INT64_MAX);
    record.set_kenning_id(INT64_MIN);
    record.mutable_store()->set_item_id(INT64_MIN);
    record.set_added_ms(INT64_MAX);
    record.set_metadata_changed_ms(INT64_MIN);
    record.mutable_rating()->set_value(UINT32_MAX);
    record.mutable_rating()->set_changed_ms(INT64_MAX);
    record.mutable_bookmark()->set_position_ms(UINT64_MAX);
    record.mutable_bookmark()->set_changed_ms(INT64_MIN);
    for (std::uint32_t field : {0u, 6u, 63u, 64u, UINT32_MAX}) {
        qorx::FieldChange& change = *record.add_field_changes();
        change.set_field(field);
        change.set_changed_ms(INT64_MAX);
    }
    qorx::Playlist list = playlist(INT64_MAX, {INT64_MIN, INT64_MAX, 0});
    list.set_built_in_kind(0);
    list.set_added_ms(INT64_MIN);
    list.set_name_changed_ms(INT64_MIN);
    list.set_items_changed_ms(INT64_MAX);
    expectTaken(sealedTracks("peer", {record}), sealedPlaylists("peer", {list}));
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 2);
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item"), 2);
    expectTravelsOn();
}

TEST_F(HostileRecords, EveryNumberButZeroIsAnId) {
    std::vector<qorx::Track> tracks;
    std::vector<qorx::Playlist> playlists;
    const std::vector<std::int64_t> ids(std::begin(ExtremeIDs), std::end(ExtremeIDs));
    for (const std::int64_t id : ids) {
        tracks.push_back(track(id));
        tracks.back().set_sync_id(~id);
        tracks.back().set_own_id(id);
        playlists.push_back(playlist(id, ids));
    }
    expectTaken(sealedTracks("peer", tracks), sealedPlaylists("peer", playlists));
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 1 + std::ssize(ids));
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item WHERE item_pid <> 0"),
              std::ssize(ids) * std::ssize(ids));
    EXPECT_EQ(device.number("SELECT min(item_pid) > 0 FROM item"), 1);
    expectTravelsOn();
    // And away again.
    std::vector<qorx::Deletion> deletions;
    for (const std::int64_t id : ids) {
        deletions.push_back(deletion(id));
        deletions.back().set_deleted_ms(INT64_MAX);
    }
    ASSERT_TRUE(device.importData(sealedTracks("peer", {}, deletions), std::nullopt).success);
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 1);
    expectTravelsOn();
}

TEST_F(HostileRecords, EntriesOfOneGlobalIdOrOneSyncIdAreEntriesOfTheirOwn) {
    qorx::Track one = track(10);
    qorx::Track two = track(20);
    one.set_global_id(7);
    two.set_global_id(7);
    one.set_sync_id(3);
    two.set_sync_id(3);
    // And a playlist that goes by a track's id.
    expectTaken(sealedTracks("peer", {one, two}),
                sealedPlaylists("peer", {playlist(10, {10, 20})}));
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 3);
    EXPECT_EQ(device.number("SELECT count(DISTINCT item_pid) FROM container_item"), 2);
}

TEST_F(HostileRecords, CountsThatOverflowTogetherAreBoundedAndTheOwnerCountsOn) {
    qorx::Track record = track(10);
    for (const std::string& origin : {device.uid(), std::string("one"), std::string("two")}) {
        qorx::PlayStatistics& plays = *record.add_plays();
        plays.set_origin_uid(origin);
        plays.set_play_count(UINT64_MAX);
        plays.set_skip_count(INT64_MAX);
        plays.set_last_played_ms(INT64_MAX);
        plays.set_last_skipped_ms(INT64_MIN);
    }
    expectTaken(sealedTracks("peer", {record}), std::nullopt);
    const std::int64_t pid = device.pidOf(10);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(korvane::recordPlay(device.library(), pid));
        EXPECT_FALSE(korvane::recordSkip(device.library(), pid));
    }
    EXPECT_FALSE(korvane::setBookmark(device.library(), pid, UINT64_MAX));
    EXPECT_GT(device.number("SELECT play_count FROM item_stats ORDER BY 1 DESC LIMIT 1"), 0);
    EXPECT_EQ(device.number("SELECT min(bookmark_ms, play_count, skip_count) < 0 FROM item_stats"),
              0);
    expectTravelsOn();
}

TEST_F(HostileRecords, APlaylistThatHoldsItselfHoldsAnEntryWithoutATrack) {
    expectTaken(std::nullopt, sealedPlaylists("peer", {playlist(42, {42})}));
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item WHERE item_pid = 0"), 1);
    expectTravelsOn();
}

// What the next two measure would be seen.
TEST(PeakMemory, SeesWhatIsTakenMeanwhile) {
    const PeakMemory memory;
    { const std::vector<char> taken(std::size_t{128} << 20, 'x'); }
    EXPECT_GT(memory.grownMiB(), 100);
}

TEST_F(HostileRecords, AMillionRecordsThatReferToNothingTakeLittleMemory) {
    constexpr int Records = 1'000'000;
    platform::Data tracks;
    {
        std::vector<qorx::Deletion> deletions(Records);
        std::int64_t id = 1'000'000;
        for (qorx::Deletion& deletion : deletions) {
            deletion.set_persistent_id(++id);
        }
        tracks = sealedTracks("peer", {}, deletions);
    }
    const PeakMemory memory;
    ASSERT_TRUE(device.importData(tracks, std::nullopt).success);
    // As objects they would take a hundred bytes each.
    EXPECT_LT(memory.grownMiB(), MeasuresMemory ? 48 : 1'000);
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 1);
}

TEST_F(HostileRecords, DeletionsAndEntriesOfWhatIsNotHereAreRemembered) {
    constexpr int Deletions = 5'000;
    constexpr int Entries = 200'000;
    std::int64_t id = 1'000'000;
    std::vector<qorx::Deletion> deletions;
    for (int i = 0; i < Deletions; ++i) {
        deletions.push_back(deletion(++id));
    }
    qorx::Playlist list = playlist(42, {});
    for (int i = 0; i < Entries; ++i) {
        list.add_items()->set_persistent_id(++id);
    }
    const platform::Data tracks = sealedTracks("peer", {}, deletions);
    const platform::Data playlists = sealedPlaylists("peer", {list});
    const PeakMemory memory;
    ASSERT_TRUE(device.importData(tracks, playlists).success);
    EXPECT_LT(memory.grownMiB(), MeasuresMemory ? 96 : 1'000);
    EXPECT_EQ(device.number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(device.number("SELECT count(*) FROM deleted_entry"), Deletions);
    EXPECT_EQ(device.number("SELECT count(*) FROM container_item"), Entries);
}

TEST_F(HostileRecords, WhatIsTooLargeToSendOnIsLeftOutAndTheRestTravels) {
    constexpr std::size_t Large = 9u << 20;
    qorx::Track large = track(10);
    large.set_comment(std::string(Large, 'c'));
    ASSERT_TRUE(device.importData(sealedTracks("peer", {large, track(20)}), std::nullopt).success);
    TestDevice other;
    EXPECT_EQ(other.pullFrom(device), 3u);
    EXPECT_EQ(other.number("SELECT length(comment) FROM item_extra WHERE global_id = 10"), Large);
    // Together the two fields are more than a record holds.
    large.clear_comment();
    large.set_description(std::string(Large, 'd'));
    ASSERT_TRUE(device.importData(sealedTracks("another", {large}), std::nullopt).success);
    korvane::setTrackFields(device.library(), device.pidOf(20),
                            std::vector<korvane::FieldEdit>{{"title", "New"}});
    other.pullFrom(device);
    EXPECT_EQ(other.text("SELECT title FROM item_extra WHERE global_id = 20"), "New");
    EXPECT_EQ(other.number("SELECT description IS NULL FROM item_extra WHERE global_id = 10"), 1);
}

}  // namespace
