#include "device/korvane/purchases.h"

#include "common/sqlite/database.h"
#include "platform/media_library_properties.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using korvane::Purchase;

class Purchases : public test::LibraryTest {
protected:
    static Purchase song() { return {4711, 77, KV3MediaTypeMusic, "Guess", "mp3", false}; }
    korvane::PurchasedTrack make(const Purchase& purchase) {
        platform::OptionalError error;
        const auto track = korvane::findOrMakePurchase(*library, purchase, error);
        EXPECT_TRUE(track) << (error ? error->text() : "");
        return track.value_or(korvane::PurchasedTrack());
    }
    std::string text(std::string_view sql) {
        return library->connections().reading<std::string>([&](common::Database& database) {
            auto row = database.query(sql);
            return row.step() ? std::string(row->text(0)) : std::string();
        });
    }
    platform::OptionalError record(std::int64_t track, const std::string& title = "Song") {
        writeFile(pathOf(track), "12345");
        return korvane::recordPurchasedFile(*library, track, {pathOf(track), title, "m4a"});
    }
    static std::string pathOf(std::int64_t track) {
        return "/var/mobile/Media/Purchases/" + std::to_string(track) + ".m4a";
    }
};

TEST_F(Purchases, AnEntryIsMadeForAnItemOnce) {
    Purchase purchase = song();
    purchase.isTemporary = true;
    const std::int64_t revision = library->currentRevision();
    const auto made = make(purchase);
    EXPECT_TRUE(made.isNew);
    EXPECT_FALSE(made.hasFile);
    EXPECT_GT(made.persistentID, 0);
    EXPECT_GT(library->currentRevision(), revision);
    EXPECT_EQ(number("SELECT sources FROM item"), 1);
    EXPECT_EQ(number("SELECT media_type FROM item"), KV3MediaTypeMusic);
    EXPECT_EQ(number("SELECT added_ms FROM item"), 1'700'000'000'000);
    EXPECT_EQ(number("SELECT date_added FROM item"), 1'700'000'000);
    EXPECT_GT(number("SELECT album_order FROM item"), 0);
    EXPECT_EQ(number("SELECT store_item_id FROM item_store"), 4711);
    EXPECT_EQ(number("SELECT account_id FROM item_store"), 77);
    EXPECT_EQ(number("SELECT is_temporary_cloud_download FROM item_store"), 1);
    EXPECT_GT(number("SELECT global_id FROM item_extra"), 0);
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Guess");

    const auto found = make(song());
    EXPECT_FALSE(found.isNew);
    EXPECT_EQ(found.persistentID, made.persistentID);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
}

TEST_F(Purchases, TheFileIsRecordedUnderPurchases) {
    const std::int64_t track = make(song()).persistentID;
    EXPECT_EQ(record(track), std::nullopt);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 300);
    EXPECT_EQ(text("SELECT location_file_name FROM item_extra"), std::to_string(track) + ".m4a");
    EXPECT_EQ(number("SELECT total_size FROM item_extra"), 5);
    EXPECT_EQ(text("SELECT file_extension FROM item_extra"), "m4a");
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Song");
    EXPECT_TRUE(make(song()).hasFile);
    // A repetition changes nothing, and the title is the owner's from now on.
    EXPECT_EQ(record(track, "Other"), std::nullopt);
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Song");
}

TEST_F(Purchases, TheTrackIsInTheSmartPlaylistsOnceItsFileIsThere) {
    library->populateDynamicContainers(true);
    const auto newest = [&] {
        return number(
            "SELECT ifnull(max(item_pid), 0) FROM container_item JOIN container USING "
            "(container_id) WHERE name = 'Recently Added'");
    };
    const std::int64_t track = make(song()).persistentID;
    EXPECT_EQ(newest(), 0);
    EXPECT_EQ(record(track), std::nullopt);
    EXPECT_EQ(newest(), track);
}

TEST_F(Purchases, AHostsTrackKeepsItsTitleAndGetsTheOwnersClaim) {
    add({.pid = 12, .syncID = 34, .title = "Host's", .sources = 64});
    execute("UPDATE item_store SET store_item_id = 4711");
    const auto found = make(song());
    EXPECT_EQ(found.persistentID, 12);
    EXPECT_FALSE(found.isNew);
    EXPECT_EQ(record(12), std::nullopt);
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Host's");
    EXPECT_EQ(number("SELECT sources FROM item"), 65);
    // The host's reset leaves it.
    EXPECT_TRUE(library->removeSource(6));
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
}

TEST_F(Purchases, AFileThatIsNotThereIsNotRecorded) {
    const std::int64_t track = make(song()).persistentID;
    const auto error =
        korvane::recordPurchasedFile(*library, track, {pathOf(track), "Song", "m4a"});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text(), "The track's file is not where it was put.");
    EXPECT_EQ(text("SELECT title FROM item_extra"), "Guess");
    EXPECT_TRUE(record(track + 1));
}

TEST_F(Purchases, AnUnfinishedEntryGoesAndIsTold) {
    const std::int64_t track = make(song()).persistentID;
    EXPECT_EQ(korvane::removeUnfinishedPurchase(*library, track), std::nullopt);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted = 1"), 1);
    EXPECT_EQ(korvane::removeUnfinishedPurchase(*library, track), std::nullopt);
}

TEST_F(Purchases, AFinishedEntryAndOneOfAHostStay) {
    const std::int64_t track = make(song()).persistentID;
    EXPECT_EQ(record(track), std::nullopt);
    add({.pid = 12, .syncID = 34, .sources = 65});
    EXPECT_EQ(korvane::removeUnfinishedPurchase(*library, track), std::nullopt);
    EXPECT_EQ(korvane::removeUnfinishedPurchase(*library, 12), std::nullopt);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 2);
}

TEST_F(Purchases, TheAddressStaysForAsLongAsTheTrack) {
    const std::int64_t track = make(song()).persistentID;
    writeFile(pathOf(track), "12345");
    EXPECT_EQ(korvane::recordPurchasedFile(
                  *library, track, {pathOf(track), "", "m4a", "https://a.example/1", "music"}),
              std::nullopt);
    EXPECT_EQ(text("SELECT source || ' ' || kind FROM purchase"), "https://a.example/1 music");
    EXPECT_EQ(korvane::recordPurchasedFile(
                  *library, track, {pathOf(track), "", "m4a", "https://a.example/2", "movie"}),
              std::nullopt);
    EXPECT_EQ(text("SELECT source || ' ' || kind FROM purchase"), "https://a.example/2 movie");
    execute("DELETE FROM item");
    EXPECT_EQ(number("SELECT count(*) FROM purchase"), 0);
}

TEST_F(Purchases, WhatARestoreLeftBehindIsFetchedFromItsAddress) {
    const std::int64_t track = make(song()).persistentID;
    writeFile(pathOf(track), "12345");
    korvane::recordPurchasedFile(*library, track,
                                 {pathOf(track), "", "m4a", "https://a.example/1", "music"});
    EXPECT_TRUE(korvane::filesToFetchAgain(*library).empty());
    execute("UPDATE item SET needs_restore = 1, base_location_id = 0");
    const auto files = korvane::filesToFetchAgain(*library);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].track, track);
    EXPECT_EQ(files[0].storeItem, 4711);
    EXPECT_EQ(files[0].storeAccount, 77);
    EXPECT_EQ(files[0].source, "https://a.example/1");
    EXPECT_EQ(files[0].kind, "music");
    execute("DELETE FROM purchase");
    EXPECT_TRUE(korvane::filesToFetchAgain(*library).empty());
}

TEST_F(Purchases, ARestoreThatFailedForGoodTakesTheClaimAway) {
    const std::int64_t track = make(song()).persistentID;
    execute("UPDATE item SET needs_restore = 1");
    const std::int64_t deletions = number("SELECT count(*) FROM deleted_entry");
    EXPECT_EQ(korvane::countOfLostFiles(*library), 1u);
    EXPECT_EQ(korvane::giveUpRestore(*library, track), "Guess");
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM deleted_entry"), deletions);
    EXPECT_FALSE(korvane::giveUpRestore(*library, track));
}

TEST_F(Purchases, ATrackThatSomebodyElseClaimsStaysWithoutItsFile) {
    const std::int64_t track = make(song()).persistentID;
    execute("UPDATE item SET needs_restore = 1, sources = sources | 64");
    EXPECT_TRUE(korvane::giveUpRestore(*library, track));
    EXPECT_EQ(number("SELECT sources FROM item"), 64);
    EXPECT_EQ(number("SELECT needs_restore FROM item"), 0);
}

TEST_F(Purchases, ATrackThatWaitsForNoRestoreIsNotGivenUp) {
    EXPECT_FALSE(korvane::giveUpRestore(*library, make(song()).persistentID));
    EXPECT_EQ(number("SELECT sources FROM item"), 1);
}

}  // namespace
