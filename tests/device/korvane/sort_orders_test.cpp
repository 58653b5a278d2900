#include "device/korvane/sort_orders.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "common/sqlite/database.h"
#include "device/korvane/schema.h"

namespace {

using common::Database;

class LibrarySortOrders : public testing::Test {
protected:
    void SetUp() override { korvane::bringSchemaUpToDate(_database); }
    void ensure(std::vector<std::string> keys) {
        korvane::ensureSortOrders(_database, std::move(keys));
    }
    bool isSorted() {
        return _database.int64(
                   "SELECT count(*) FROM (SELECT sort_order, lag(sort_order) OVER (ORDER BY "
                   "sort_key) AS previous FROM sort_map) WHERE previous >= sort_order OR "
                   "sort_order "
                   "<= 0") == 0;
    }

    Database _database{":memory:", {}};
};

TEST_F(LibrarySortOrders, KeysAreFoldedAndComposed) {
    EXPECT_EQ(korvane::sortKey("The BEATLES"), "the beatles");
    EXPECT_EQ(korvane::sortKey("A\xcc\x88"), korvane::sortKey("\xc3\xa4"));
    EXPECT_EQ(korvane::sortKey("\xff\xfe"), "\xff\xfe");
    EXPECT_EQ(korvane::sortKey(""), "");
}

TEST_F(LibrarySortOrders, EveryKeyGetsItsPlaceOnce) {
    ensure({"m", "a", "z", "a"});
    const auto m = korvane::sortOrder(_database, "m");
    EXPECT_GT(m, 0);
    ensure({"b", "m", "zz", ""});
    EXPECT_EQ(korvane::sortOrder(_database, "m"), m);
    EXPECT_EQ(_database.int64("SELECT count(*) FROM sort_map"), 6);
    EXPECT_TRUE(isSorted());
    EXPECT_EQ(korvane::sortOrder(_database, "unknown"), 0);
}

TEST_F(LibrarySortOrders, RunningOutOfGapsRenumbersKeysAndTracks) {
    ensure({"a", "z"});
    _database.execute(
        "INSERT INTO item (item_pid, album_order, album_artist_order) SELECT 1, (SELECT sort_order "
        "FROM sort_map WHERE sort_key = 'a'), (SELECT sort_order FROM sort_map WHERE sort_key = "
        "'z')");
    // Each falls between the last one and "z", which halves the gap.
    std::string key = "b";
    for (int i = 0; i < 200; ++i) {
        key += "y";
        ensure({key});
        ASSERT_TRUE(isSorted()) << i;
    }
    EXPECT_EQ(_database.int64("SELECT album_order FROM item"), korvane::sortOrder(_database, "a"));
    EXPECT_EQ(_database.int64("SELECT album_artist_order FROM item"),
              korvane::sortOrder(_database, "z"));
}

}  // namespace
