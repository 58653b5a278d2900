// What owners change is merged, kept and saved again; never just replaced.
#include <gmock/gmock.h>

#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

class OwnerValues : public ImportTest {
protected:
    void SetUp() override {
        ImportTest::SetUp();
        data.add(1, "One");
    }
    void rate(int value, std::int64_t when) {
        data.tracks[0].mutable_rating()->set_value(static_cast<unsigned>(value));
        data.tracks[0].mutable_rating()->set_changed_ms(when);
    }
    void played(const std::string& origin, unsigned count) {
        qorx::PlayStatistics& plays = *data.tracks[0].add_plays();
        plays.set_origin_uid(origin);
        plays.set_play_count(count);
        plays.set_last_played_ms(count * 1000);
    }

    HostData data;
};

TEST_F(OwnerValues, TheLaterRatingWins) {
    rate(40, 100);
    imports(data);
    execute("UPDATE item_stats SET user_rating = 60, rating_changed_ms = 200");
    imports(data);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 60);
    rate(20, 300);
    imports(data);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 20);
    rate(30, 300);
    imports(data);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 30);
    data.tracks[0].clear_rating();
    imports(data);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 30);
}

TEST_F(OwnerValues, TheLaterBookmarkWins) {
    data.tracks[0].mutable_bookmark()->set_position_ms(1000);
    data.tracks[0].mutable_bookmark()->set_changed_ms(10);
    imports(data);
    data.tracks[0].mutable_bookmark()->set_position_ms(5000);
    data.tracks[0].mutable_bookmark()->set_changed_ms(9);
    imports(data);
    EXPECT_EQ(number("SELECT bookmark_ms FROM item_stats"), 1000);
}

TEST_F(OwnerValues, CountsMergeByTheLargerOfEachOriginAndShowTheirSum) {
    played("a", 3);
    played("b", 5);
    imports(data);
    EXPECT_EQ(number("SELECT play_count FROM item_stats"), 8);
    EXPECT_EQ(number("SELECT last_played_ms FROM item_stats"), 5000);
    execute("UPDATE play_statistics SET play_count = 9 WHERE origin_uid = 'a'");
    imports(data);
    EXPECT_EQ(number("SELECT play_count FROM item_stats"), 14);
    played("a", 10);
    imports(data);
    EXPECT_EQ(number("SELECT play_count FROM item_stats"), 15);
}

TEST_F(OwnerValues, ARatingIsNeverMoreThanAHundred) {
    rate(4'000'000, 1);
    imports(data);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 100);
}

TEST_F(OwnerValues, AnEditBetweenSaveAndImportIsSavedNextTime) {
    imports(data);
    save(0, 1);
    const std::int64_t covered = revision();
    execute("UPDATE item_stats SET user_rating = 60, rating_changed_ms = 200");
    data.tracks[0].set_title("Changed by the host meanwhile");
    imports(data);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), covered);
    EXPECT_EQ(text("SELECT origin FROM entity_revision"), "");
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 60);
}

TEST_F(OwnerValues, WhatASaveCoveredBelongsToTheHostOnceItChangesIt) {
    imports(data);
    execute("UPDATE item_stats SET user_rating = 60, rating_changed_ms = 200");
    save(0, 1);
    data.tracks[0].set_title("Changed by the host");
    imports(data);
    EXPECT_EQ(text("SELECT origin FROM entity_revision"), "host-1");
}

TEST_F(OwnerValues, TheMarkIsNoFurtherThanTheHostHasMerged) {
    imports(data);
    execute("UPDATE item_stats SET user_rating = 60, rating_changed_ms = 200");
    save(0, 1);
    ASSERT_GT(revision(), 1);
    data.header.set_covered_revision(1);
    imports(data);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), 1);
    data.header.set_covered_revision(INT64_MAX);
    imports(data);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), revision());
}

TEST_F(OwnerValues, WithoutASaveTheMarkStays) {
    imports(data);
    EXPECT_TRUE(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision").isNull());
}

}  // namespace
