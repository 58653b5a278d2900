// What a restore asks of the library: many values of a track at once, many tracks removed at once.
#include <gmock/gmock.h>

#include "common/sqlite/database.h"
#include "device/korvane/track.h"
#include "device/korvane/track_query.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using korvane::Track;
using korvane::TrackQuery;
using platform::Value;
using testing::ElementsAre;

KV3Predicate needsNoRestore() {
    return KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(KV3TrackPropertyNeedsRestore,
                                                                     0);
}

class LibraryTrackClearing : public test::LibraryTest {
protected:
    Track track(std::int64_t pid) { return {pid, library}; }
    Value value(std::int64_t pid, KV3TrackProperty property) {
        return track(pid).valueForProperty(property);
    }
    bool deleteAll(const KV3Predicate& predicate) {
        return TrackQuery(library, predicate, {}).deleteAllEntitiesFromLibrary();
    }
};

TEST_F(LibraryTrackClearing, ManyValuesOfSeveralTablesAreSetTogether) {
    add({.pid = 1, .syncID = 5, .title = "T"});
    execute(
        "UPDATE item_store SET veska_id = 9, purchase_history_id = 3, purchase_history_token = 4");
    const KV3TrackProperty properties[] = {
        KV3TrackPropertyNeedsRestore,
        KV3TrackPropertyStoreArtworkToken,
        KV3TrackPropertyPurchaseHistoryArtworkToken,
        KV3TrackPropertyMatchRedownloadParameters,
        KV3TrackPropertyPurchaseHistoryID,
        KV3TrackPropertyPurchaseHistoryToken,
        KV3TrackPropertyPurchaseHistoryRedownloadParameters,
        KV3TrackPropertyIsTemporaryCloudDownload,
        KV3TrackPropertyStoreVeskaID,
        KV3TrackPropertySyncID,
    };
    const Value values[] = {true, "store", "history", "match", 11, 12, "again", true, 13, 14};
    EXPECT_TRUE(track(1).setValues(values, properties));
    EXPECT_EQ(track(1).getValues(properties),
              (std::vector<Value>{1, "store", "history", "match", 11, 12, "again", 1, 13, 14}));
    EXPECT_EQ(number("SELECT count(*) FROM item_artwork WHERE best_artwork_token = 'store'"), 1);
}

TEST_F(LibraryTrackClearing, EqualValuesOfSeveralTablesGiveNoRevision) {
    add({.pid = 1, .syncID = 5});
    const KV3TrackProperty properties[] = {KV3TrackPropertySyncArtworkToken,
                                           KV3TrackPropertyStoreVeskaID, KV3TrackPropertySyncID};
    const Value values[] = {"token", 9, 5};
    EXPECT_TRUE(track(1).setValues(values, properties));
    const auto revision = library->currentRevision();
    EXPECT_TRUE(track(1).setValues(values, properties));
    EXPECT_EQ(library->currentRevision(), revision);
}

TEST_F(LibraryTrackClearing, TheNumberZeroIsNoDownloadAndNoCloudItem) {
    add({.pid = 1});
    const KV3TrackProperty properties[] = {KV3TrackPropertyDownloadIdentifier,
                                           KV3TrackPropertyStoreVeskaID};
    const Value some[] = {"download", 9};
    const Value none[] = {0, 0};
    EXPECT_TRUE(track(1).setValues(some, properties));
    EXPECT_TRUE(track(1).setValues(none, properties));
    EXPECT_EQ(track(1).getValues(properties), (std::vector<Value>{Value(), Value()}));
    const Value numbers[] = {4711, 0};
    EXPECT_TRUE(track(1).setValues(numbers, properties));
    EXPECT_EQ(value(1, KV3TrackPropertyDownloadIdentifier), Value("4711"));
}

TEST_F(LibraryTrackClearing, TheRatingIsBoundedAmongOtherValues) {
    add({.pid = 1, .title = "T"});
    const KV3TrackProperty properties[] = {KV3TrackPropertyUserRating, KV3TrackPropertyTitle};
    const Value values[] = {500, "U"};
    EXPECT_TRUE(track(1).setValues(values, properties));
    EXPECT_EQ(track(1).getValues(properties), (std::vector<Value>{100, "U"}));
    EXPECT_NE(number("SELECT rating_changed_ms FROM item_stats"), 0);
}

TEST_F(LibraryTrackClearing, TesselUIsTheMediaTypesToTell) {
    add({.pid = 1, .mediaType = KV3MediaTypeMusic});
    add({.pid = 2, .mediaType = KV3MediaTypeTesselU});
    add({.pid = 3, .mediaType = KV3MediaTypeTesselUVideo | KV3MediaTypeMusic});
    std::vector<std::int64_t> found;
    TrackQuery(
        library,
        KV3ComparisonPredicate::predicateWithPropertyEqualToInteger(KV3TrackPropertyIsTesselU, 1),
        {})
        .enumeratePersistentIDsAndProperties(
            {}, [&](std::int64_t pid, KV3TrackRow) { found.push_back(pid); });
    EXPECT_THAT(found, ElementsAre(2, 3));
    EXPECT_EQ(value(1, KV3TrackPropertyIsTesselU), Value(0));
    EXPECT_FALSE(track(1).setValue(1, KV3TrackPropertyIsTesselU));
}

TEST_F(LibraryTrackClearing, AllThatMatchLeaveAndTheRestStays) {
    for (int pid = 1; pid <= 3; ++pid)
        add({.pid = pid, .album = "Album " + std::to_string(pid), .globalID = 70 + pid});
    EXPECT_TRUE(track(2).setValue(true, KV3TrackPropertyNeedsRestore));
    EXPECT_TRUE(deleteAll(needsNoRestore()));
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_TRUE(track(2).existsInLibrary());
    EXPECT_EQ(number("SELECT items FROM row_count"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM album"), 1);
    EXPECT_TRUE(deleteAll(needsNoRestore()));
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
}

TEST_F(LibraryTrackClearing, WhatLeavesIsNotToldToOthers) {
    add({.pid = 1, .syncID = 5, .globalID = 71});
    EXPECT_TRUE(deleteAll(needsNoRestore()));
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE entity_kind = 0"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM deleted_entry"), 0);
}

TEST_F(LibraryTrackClearing, WhatLeavesIsRememberedWithItsPlaces) {
    add({.pid = 1, .globalID = 71});
    add({.pid = 2});
    EXPECT_TRUE(track(1).setValue(80, KV3TrackPropertyUserRating));
    execute("UPDATE item_stats SET bookmark_ms = 9000 WHERE item_pid = 1");
    execute("INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (1, 'o', 7)");
    execute("INSERT INTO container (container_id, container_pid) VALUES (90, 90)");
    execute("INSERT INTO container_item (container_id, position, item_pid) VALUES (90, 1, 2)");
    execute("INSERT INTO container_item (container_id, position, item_pid) VALUES (90, 2, 1)");
    EXPECT_TRUE(deleteAll(needsNoRestore()));
    EXPECT_EQ(number("SELECT count(*) FROM removed_memory WHERE global_id = 71 AND item_pid = 1 "
                     "AND user_rating = 80 AND bookmark_ms = 9000"),
              1);
    EXPECT_EQ(number("SELECT play_count FROM removed_play_statistics WHERE global_id = 71"), 7);
    EXPECT_EQ(number("SELECT position FROM container_item WHERE item_pid = 0 AND "
                     "foreign_global_id = 71"),
              2);
    EXPECT_EQ(number("SELECT count(*) FROM removed_memory"), 1);
}

TEST_F(LibraryTrackClearing, ARolledBackRemovalLeavesAllAsItWas) {
    add({.pid = 1, .globalID = 71});
    library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        EXPECT_TRUE(deleteAll(needsNoRestore()));
        EXPECT_FALSE(track(1).existsInLibrary());
        return false;
    });
    EXPECT_TRUE(track(1).existsInLibrary());
    EXPECT_EQ(number("SELECT count(*) FROM removed_memory"), 0);
}

TEST_F(LibraryTrackClearing, ARemovalThatTheDatabaseRefusesSaysSoAndRemovesNothing) {
    add({.pid = 1});
    add({.pid = 2});
    execute(
        "CREATE TRIGGER refusal BEFORE DELETE ON item WHEN OLD.item_pid = 2 BEGIN "
        "SELECT raise(ABORT, 'no'); END");
    EXPECT_FALSE(deleteAll(needsNoRestore()));
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
}

TEST_F(LibraryTrackClearing, AnEnumerationGoesOnWhileItsBlockChangesTracks) {
    for (int pid = 1; pid <= 50; ++pid)
        add({.pid = pid, .syncID = pid});
    const KV3TrackProperty properties[] = {KV3TrackPropertySyncID};
    std::vector<std::int64_t> seen;
    TrackQuery(library, needsNoRestore(), {})
        .enumeratePersistentIDsAndProperties(properties, [&](std::int64_t pid, KV3TrackRow values) {
            seen.push_back(values[0].int64Value());
            // Also those that have not had their turn, and the block sees it at once.
            EXPECT_TRUE(track(51 - pid).setValue(1000, KV3TrackPropertySyncID));
            EXPECT_EQ(value(51 - pid, KV3TrackPropertySyncID), Value(1000));
        });
    ASSERT_EQ(seen.size(), 50u);
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i], static_cast<std::int64_t>(i + 1));
}

TEST_F(LibraryTrackClearing, AnEnumerationWithinATransactionSeesWhatThatHasWritten) {
    add({.pid = 1});
    std::vector<std::int64_t> seen;
    library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        EXPECT_TRUE(track(1).setValue(44, KV3TrackPropertySyncID));
        const KV3TrackProperty properties[] = {KV3TrackPropertySyncID};
        TrackQuery(library, needsNoRestore(), {})
            .enumeratePersistentIDsAndProperties(
                properties, [&](std::int64_t pid, KV3TrackRow values) {
                    seen.push_back(values[0].int64Value());
                    EXPECT_TRUE(track(pid).setValue(true, KV3TrackPropertyNeedsRestore));
                });
        return true;
    });
    EXPECT_THAT(seen, ElementsAre(44));
}

}  // namespace
