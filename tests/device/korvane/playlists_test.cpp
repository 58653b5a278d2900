#include <gmock/gmock.h>

#include "common/sqlite/database.h"
#include "device/korvane/built_in_playlists.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/framework.h"
#include "device/korvane/saver.h"
#include "device/korvane/smart_fill.h"
#include "device/korvane/smart_rules.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;
using testing::ElementsAre;

class LibraryPlaylists : public test::LibraryTest {
protected:
    std::vector<std::int64_t> matching(const SmartRules& rules) {
        return library->connections().reading<std::vector<std::int64_t>>(
            [&](common::Database& database) {
                return tracksMatchingRules(database, rules, 1'700'000'000);
            });
    }
    std::vector<std::int64_t> where(SmartCondition condition) {
        return matching({false, {std::move(condition)}, 0, SmartField::DateAdded, false});
    }
    std::vector<std::int64_t> entries(std::int64_t builtInKind) {
        return library->connections().reading<std::vector<std::int64_t>>(
            [&](common::Database& database) {
                std::vector<std::int64_t> pids;
                auto rows = database.query(
                    "SELECT item_pid FROM container_item JOIN container USING (container_id) WHERE "
                    "built_in_kind = ? ORDER BY position",
                    builtInKind);
                while (rows.step())
                    pids.push_back(rows->int64(0));
                return pids;
            });
    }
};

TEST_F(LibraryPlaylists, ANewLibraryMakesItsOwnOnce) {
    const auto made = library->autoCreatedBuiltInSmartPlaylistsPIDs();
    EXPECT_EQ(made.size(), 5u);
    EXPECT_TRUE(library->valueForDatabaseProperty("createdBuiltInSmartPlaylists").boolValue());
    library.reset();
    open();
    EXPECT_EQ(library->autoCreatedBuiltInSmartPlaylistsPIDs(), made);
}

TEST_F(LibraryPlaylists, ThoseThatWentDoNotComeBack) {
    const auto made = library->autoCreatedBuiltInSmartPlaylistsPIDs();
    EXPECT_TRUE(library->deleteAutoCreatedBuiltInSmartPlaylists(made));
    EXPECT_TRUE(library->autoCreatedBuiltInSmartPlaylistsPIDs().empty());
    EXPECT_TRUE(library->valueForDatabaseProperty("autoCreatedSmartPlaylistsDeleted").boolValue());
    EXPECT_TRUE(library->populateDynamicContainers(true));
    EXPECT_TRUE(library->autoCreatedBuiltInSmartPlaylistsPIDs().empty());
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted <> 0"), 0);
}

TEST_F(LibraryPlaylists, OnlyWhatTheLibraryMadeIsDeletedWithThem) {
    execute("INSERT INTO container (container_pid) VALUES (50)");
    EXPECT_TRUE(library->deleteAutoCreatedBuiltInSmartPlaylists({50, 51}));
    EXPECT_EQ(number("SELECT count(*) FROM container WHERE container_pid = 50"), 1);
    EXPECT_TRUE(library->valueForDatabaseProperty("autoCreatedSmartPlaylistsDeleted").isNull());
}

TEST_F(LibraryPlaylists, AreFilledByTheirRulesWithoutARevision) {
    for (int pid = 1; pid <= 3; ++pid)
        add({.pid = pid});
    execute("UPDATE item SET date_added = 1699990000 + item_pid");
    execute(
        "INSERT INTO play_statistics (item_pid, origin_uid, play_count, last_played_ms) VALUES "
        "(1, 'o', 2, 1699999000000), (3, 'o', 7, 1600000000000)");
    execute("UPDATE item_stats SET user_rating = 100 WHERE item_pid = 2");
    const auto revision = library->currentRevision();
    EXPECT_TRUE(library->populateDynamicContainers(false));
    EXPECT_THAT(entries(1), ElementsAre(3, 2, 1));
    EXPECT_THAT(entries(2), ElementsAre(3, 1));
    EXPECT_THAT(entries(3), ElementsAre(2));
    EXPECT_THAT(entries(4), ElementsAre(1));
    EXPECT_THAT(entries(5), ElementsAre(2));
    EXPECT_EQ(library->currentRevision(), revision);
}

TEST_F(LibraryPlaylists, FillingWritesOnlyWhatDiffers) {
    execute("INSERT INTO container (container_pid, kind) VALUES (50, 1)");
    const auto id = number("SELECT container_id FROM container WHERE container_pid = 50");
    const auto changes = [&](const std::vector<std::int64_t>& pids) {
        std::int64_t written = 0;
        library->connections().write([&](common::Database& database) {
            const auto before = database.int64("SELECT total_changes()");
            replaceEntries(database, id, pids);
            written = database.int64("SELECT total_changes()") - before;
            return true;
        });
        return written;
    };
    EXPECT_EQ(changes({1, 2, 3}), 3);
    EXPECT_EQ(changes({1, 2, 3}), 0);
    EXPECT_EQ(changes({1, 9, 3}), 1);
    EXPECT_EQ(changes({1}), 2);
    EXPECT_EQ(changes({1, 4}), 1);
    EXPECT_EQ(changes({}), 2);
}

TEST_F(LibraryPlaylists, RulesThatCannotBeReadLeaveThePlaylistAsItIs) {
    execute("INSERT INTO container (container_pid, kind, smart_rules) VALUES (50, 1, x'0102')");
    execute(
        "INSERT INTO container_item (container_id, position, item_pid) SELECT container_id, 0, "
        "1 FROM container WHERE container_pid = 50");
    EXPECT_TRUE(library->populateDynamicContainers(false));
    EXPECT_EQ(number("SELECT count(*) FROM container_item"), 1);
}

TEST_F(LibraryPlaylists, EveryOperationSelectsWhatItSays) {
    add({.pid = 1, .title = "Alpha 100%"});
    add({.pid = 2, .title = "beta"});
    add({.pid = 3});
    execute("UPDATE item_stats SET last_played_ms = 1699999990000 WHERE item_pid = 2");
    execute("UPDATE item SET disc_number = item_pid");
    using enum SmartOperation;
    EXPECT_THAT(where({SmartField::Title, Equal, "ALPHA 100%"}), ElementsAre(1));
    EXPECT_THAT(where({SmartField::Title, NotEqual, "beta"}), ElementsAre(1, 3));
    EXPECT_THAT(where({SmartField::Title, Contains, "ET"}), ElementsAre(2));
    EXPECT_THAT(where({SmartField::Title, Contains, "%"}), ElementsAre(1));
    EXPECT_THAT(where({SmartField::Title, DoesNotContain, "a"}), ElementsAre(3));
    EXPECT_THAT(where({SmartField::Title, BeginsWith, "al"}), ElementsAre(1));
    EXPECT_THAT(where({SmartField::Title, EndsWith, "TA"}), ElementsAre(2));
    EXPECT_THAT(where({SmartField::Title, EndsWith, ""}), ElementsAre(1, 2, 3));
    EXPECT_THAT(where({SmartField::LastPlayed, WithinLast, std::int64_t{60}}), ElementsAre(2));
    EXPECT_THAT(where({SmartField::LastPlayed, NotWithinLast, std::int64_t{60}}),
                ElementsAre(1, 3));
    EXPECT_THAT(where({SmartField::LastPlayed, WithinLast, INT64_MIN}), ElementsAre());
    EXPECT_THAT(where({SmartField::DiscNumber, AnyBits, std::int64_t{2}}), ElementsAre(2, 3));
    EXPECT_THAT(matching({true,
                          {{SmartField::DiscNumber, Less, std::int64_t{2}},
                           {SmartField::DiscNumber, Greater, std::int64_t{2}}},
                          0,
                          SmartField::DiscNumber,
                          true}),
                ElementsAre(3, 1));
    EXPECT_THAT(matching({false, {}, 2, SmartField::Title, true}), ElementsAre(2, 1));
}

TEST_F(LibraryPlaylists, EveryFieldCanBeAskedFor) {
    add({.pid = 1});
    for (int field = 1; field <= 16; ++field)
        EXPECT_EQ(
            where({static_cast<SmartField>(field), SmartOperation::GreaterOrEqual, std::int64_t{0}})
                .size(),
            1u)
            << field;
    for (int field = 64; field <= 72; ++field)
        EXPECT_EQ(where({static_cast<SmartField>(field), SmartOperation::Equal, ""}).size(), 1u)
            << field;
}

// ---- The framework over the same library.

class RecordingSaver final : public Saver {
public:
    explicit RecordingSaver(std::vector<std::string>& saved) : _saved(saved) {}
    void saveTrackMetadata(Library&, std::int64_t since, std::uint32_t torvel) override {
        _saved.push_back("tracks " + std::to_string(since) + " " + std::to_string(torvel));
    }
    void savePlaylists(Library&, std::int64_t since, std::uint32_t torvel) override {
        _saved.push_back("playlists " + std::to_string(since) + " " + std::to_string(torvel));
    }

private:
    std::vector<std::string>& _saved;
};

class LibraryFramework : public test::LibraryTest {
protected:
    std::vector<std::string> _saved;
};

TEST_F(LibraryFramework, AnswersTheClassOperations) {
    add({.pid = 1, .syncID = 5});
    Framework framework(library, {nullptr, std::make_unique<RecordingSaver>(_saved)});
    const auto shared = framework.sharedLibrary();
    EXPECT_TRUE(framework.trackWithPersistentID(1, shared)->existsInLibrary());
    EXPECT_FALSE(framework.trackWithPersistentID(2, shared)->existsInLibrary());
    const auto bySyncID = [&](std::int64_t syncID) {
        return framework.anyTrack(shared, KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(
                                              KV3TrackPropertySyncID, syncID));
    };
    EXPECT_EQ(bySyncID(5)->persistentID(), 1);
    EXPECT_FALSE(bySyncID(6)->existsInLibrary());
    EXPECT_NE(framework.createIntegerUUID(), framework.createIntegerUUID());
    EXPECT_EQ(framework.autoCreatedBuiltInSmartPlaylistsPIDs(shared).size(), 5u);
    shared->saveTrackMetadataSinceRevision(3, 9);
    shared->savePlaylistsSinceRevision(4, 9);
    EXPECT_THAT(_saved, ElementsAre("tracks 3 9", "playlists 4 9"));
}

TEST_F(LibraryFramework, TakesTheCloudLocationOffTracks) {
    add({.pid = 1});
    add({.pid = 2});
    execute("UPDATE item SET base_location_id = 400 WHERE item_pid = 1");
    execute("UPDATE item SET base_location_id = 300 WHERE item_pid = 2");
    Framework framework(library, {});
    EXPECT_TRUE(framework.unlinkRedownloadableAssets(library, {1, 2, 3}));
    EXPECT_EQ(number("SELECT base_location_id FROM item WHERE item_pid = 1"), 0);
    EXPECT_EQ(number("SELECT base_location_id FROM item WHERE item_pid = 2"), 300);
}

TEST_F(LibraryFramework, ChapterTimesOfBytesThatAreNoneAreNone) {
    Framework framework(library, {});
    int calls = 0;
    framework.enumerateChapterTimes({1, 2, 3}, [&](double) { ++calls; });
    EXPECT_EQ(calls, 0);
}

}  // namespace
