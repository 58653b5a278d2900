// The records of tracks that changed few at a time: they are what the rows make, whatever changes.
#include "common/sqlite/database.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/save/record_keeping.h"
#include "tests/device/korvane_export/export_fixture.h"

namespace {

using namespace test;

class KeptRecordsTest : public ExportTest {
protected:
    void SetUp() override {
        ExportTest::SetUp();
        addTracks(3);
    }

    // Of a track, or of all.
    std::int64_t kept(std::int64_t pid = 0) {
        return number("SELECT count(*) FROM entity_revision WHERE record IS NOT NULL AND pid IN (" +
                      (pid == 0 ? "pid" : std::to_string(pid)) + ")");
    }
    // Of a track, what an export reads; then its rows alone.
    void expectToldAsHeld(std::int64_t pid) {
        const qorx::Track told = exportOne(pid);
        execute("UPDATE entity_revision SET record = NULL");
        EXPECT_EQ(told.SerializeAsString(), exportOne(pid).SerializeAsString());
    }
    // One transaction; its record is kept before it, when the track has one.
    void change(const std::string& sql) {
        execute("UPDATE item_extra SET year = year + 1");
        ASSERT_EQ(kept(), 3);
        execute(sql);
    }
};

TEST_F(KeptRecordsTest, AreThoseOfTheTracksThatATransactionChanged) {
    EXPECT_EQ(kept(), 3);
    execute("UPDATE entity_revision SET record = NULL");
    EXPECT_FALSE(korvane::rateTrack(*library, 2000, 4));
    EXPECT_EQ(kept(), 1);
    EXPECT_EQ(kept(2000), 1);
    EXPECT_EQ(exportOne(2000).rating().value(), 80u);
    expectToldAsHeld(2000);
}

TEST_F(KeptRecordsTest, AreReadInPlaceOfTheRows) {
    // What no statement of ours does: the rows change and the triggers are not asked.
    execute("DROP TRIGGER item_extra_travels");
    execute("UPDATE item_extra SET title = 'Unheard of'");
    EXPECT_EQ(exportOne(1000).title(), "Title 1");
    execute("UPDATE entity_revision SET record = NULL");
    EXPECT_EQ(exportOne(1000).title(), "Unheard of");
}

TEST_F(KeptRecordsTest, ATrackThatChangesAgainHasTheNewOne) {
    EXPECT_FALSE(korvane::rateTrack(*library, 2000, 4));
    EXPECT_FALSE(korvane::rateTrack(*library, 2000, 2));
    EXPECT_EQ(exportOne(2000).rating().value(), 40u);
    expectToldAsHeld(2000);
}

TEST_F(KeptRecordsTest, SeveralChangesInOneTransactionAreAllInIt) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        for (const char* title : {"First", "Second", "Third"})
            database.execute("UPDATE item_extra SET title = ? WHERE item_pid = 1000", title);
        return true;
    }));
    EXPECT_EQ(kept(1000), 1);
    EXPECT_EQ(exportOne(1000).title(), "Third");
}

TEST_F(KeptRecordsTest, WhatIsRolledBackIsNotInThem) {
    EXPECT_FALSE(korvane::rateTrack(*library, 2000, 4));
    library->connections().write([&](common::Database& database) {
        database.execute("UPDATE item_stats SET user_rating = 20 WHERE item_pid = 2000");
        return false;
    });
    EXPECT_EQ(exportOne(2000).rating().value(), 80u);
    expectToldAsHeld(2000);
}

TEST_F(KeptRecordsTest, NoneIsKeptOfATransactionOfManyTracks) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        for (std::int64_t track = 0; track < korvane::MostKeptAtOnce; ++track)
            addTrack(database, {.pid = 10'000 + track});
        return true;
    }));
    EXPECT_EQ(kept(), 3 + korvane::MostKeptAtOnce);
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        for (std::int64_t track = 0; track <= korvane::MostKeptAtOnce; ++track)
            addTrack(database, {.pid = 20'000 + track});
        return true;
    }));
    EXPECT_EQ(kept(), 3 + korvane::MostKeptAtOnce);
    EXPECT_EQ(exportOne(20'000).persistent_id(), 20'000);
}

TEST_F(KeptRecordsTest, ALargeOneIsNotKept) {
    const auto describe = [&](std::size_t length) {
        execute("UPDATE item_extra SET description = '" + std::string(length, 'd') +
                "' WHERE item_pid = 1000");
    };
    describe(korvane::LargestKeptRecord);
    EXPECT_EQ(kept(1000), 0);
    EXPECT_EQ(exportOne(1000).description().size(), korvane::LargestKeptRecord);
    describe(korvane::LargestKeptRecord - 300);
    EXPECT_EQ(kept(1000), 1);
    EXPECT_EQ(exportOne(1000).description().size(), korvane::LargestKeptRecord - 300);
}

TEST_F(KeptRecordsTest, GoWithWhatGivesNoRevision) {
    for (const char* sql : {
             "UPDATE item_store SET sync_id = 77 WHERE item_pid = 1000",
             "UPDATE item_extra SET pending_kenning_checksum = 77 WHERE item_pid = 1000",
             "UPDATE item_artwork SET cloud_artwork_token = 'cloud' WHERE item_pid = 1000",
         }) {
        SCOPED_TRACE(sql);
        change(sql);
        EXPECT_EQ(kept(1000), 0);
        EXPECT_EQ(kept(), 2);
        expectToldAsHeld(1000);
    }
}

TEST_F(KeptRecordsTest, GoWithAMomentThatGoes) {
    execute("INSERT INTO field_change (item_pid, field, changed_ms) VALUES (1000, 5, 99)");
    ASSERT_EQ(exportOne(1000).field_changes_size(), 1);
    change("DELETE FROM field_change WHERE item_pid = 1000");
    EXPECT_EQ(kept(1000), 0);
    EXPECT_EQ(exportOne(1000).field_changes_size(), 0);
}

TEST_F(KeptRecordsTest, StayWhenWhatTheyDoNotHoldChanges) {
    change("UPDATE item SET base_location_id = 200, needs_restore = 1");
    execute("UPDATE item_extra SET location_file_name = 'ABCD.mp3'");
    execute("UPDATE item_store SET sync_id = sync_id");
    EXPECT_EQ(kept(), 3);
    expectToldAsHeld(1000);
}

TEST_F(KeptRecordsTest, ADeletedTrackHasNone) {
    deleteTrack(2000);
    EXPECT_EQ(kept(), 2);
    EXPECT_EQ(exportAll().deletions.size(), 1u);
}

TEST_F(KeptRecordsTest, CarryThePeersOwnIds) {
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        database.execute("INSERT INTO peer (peer_uid) VALUES ('peer')");
        database.execute(
            "INSERT INTO peer_identity (peer_id, entity_kind, peer_pid, pid) "
            "SELECT peer_id, 0, 5, 1000 FROM peer");
        return true;
    }));
    ASSERT_EQ(kept(1000), 1);
    EXPECT_EQ(exportOne(1000).own_id(), 0);
    library->exportTarget().set("peer");
    EXPECT_EQ(exportOne(1000).own_id(), 5);
    EXPECT_EQ(exportOne(2000).own_id(), 0);
}

TEST_F(KeptRecordsTest, WhatCannotBeReadIsReadFromTheRows) {
    for (const char* damaged :
         {"x'ffffff'", "x''", "(SELECT record FROM entity_revision WHERE pid = 2000)"}) {
        SCOPED_TRACE(damaged);
        execute(std::string("UPDATE entity_revision SET record = ") + damaged +
                " WHERE pid = 1000");
        const qorx::Track track = exportOne(1000);
        EXPECT_EQ(track.persistent_id(), 1000);
        EXPECT_EQ(track.title(), "Title 1");
    }
}

TEST_F(KeptRecordsTest, StaleOnesAreFound) {
    const auto stale = [&] {
        return library->connections().reading<std::vector<std::int64_t>>(
            korvane::tracksWithStaleRecords);
    };
    EXPECT_TRUE(stale().empty());
    execute(
        "UPDATE entity_revision SET record = substr(record, 1, length(record) - 1) "
        "WHERE pid = 2000");
    EXPECT_EQ(stale(), std::vector<std::int64_t>{2000});
}

}  // namespace
