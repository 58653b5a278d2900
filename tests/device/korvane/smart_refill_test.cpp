// Smart playlists after a change of one track: as if all had been filled anew.
#include "device/korvane/smart_refill.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "common/sqlite/database.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/smart_fill.h"
#include "device/korvane/smart_rules.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;
using testing::ElementsAre;

class SmartRefillTest : public test::LibraryTest {
protected:
    std::vector<std::int64_t> entries(std::int64_t playlist) {
        std::vector<std::int64_t> tracks;
        library->read("entries", [&](common::Database& database) {
            auto rows = database.query(
                "SELECT item_pid FROM container_item JOIN container USING (container_id) WHERE "
                "container_pid = ? ORDER BY position",
                playlist);
            while (rows.step())
                tracks.push_back(rows->int64(0));
            return true;
        });
        return tracks;
    }
    // As a whole filling would leave it.
    std::vector<std::int64_t> expectedEntries(std::int64_t playlist) {
        std::vector<std::int64_t> tracks;
        library->read("expected", [&](common::Database& database) {
            auto row = database.query("SELECT smart_rules FROM container WHERE container_pid = ?",
                                      playlist);
            if (row.step())
                tracks = tracksMatchingRules(database, *decodeSmartRules(row->blob(0)),
                                             library->nowMilliseconds() / 1000);
            return true;
        });
        return tracks;
    }
    std::int64_t make(const std::string& rules, const std::string& limit) {
        platform::OptionalError error;
        const std::int64_t pid = createSmartPlaylist(*library, rules + limit, rules, limit, error);
        EXPECT_FALSE(error) << error->text();
        return pid;
    }
    // Unheard of by anybody but the next whole filling.
    void rateUnseen(std::int64_t track, int points) {
        execute("DROP TRIGGER IF EXISTS item_stats_travels");
        execute("UPDATE item_stats SET user_rating = " + std::to_string(points) +
                " WHERE item_pid = " + std::to_string(track));
    }
};

struct Edit {
    int track;
    int kind;
    int value;
};

std::ostream& operator<<(std::ostream& out, const Edit& edit) {
    return out << "track " << edit.track << " kind " << edit.kind << " value " << edit.value;
}

constexpr int Tracks = 9;

rc::Gen<Edit> anyEdit() {
    return rc::gen::construct<Edit>(rc::gen::inRange(1, Tracks + 1), rc::gen::inRange(0, 12),
                                    rc::gen::inRange(0, 6));
}

platform::OptionalError apply(Library& library, const Edit& edit) {
    const auto set = [&](const char* field, const std::string& value) {
        const FieldEdit edits[] = {{field, value}};
        return setTrackFields(library, edit.track, edits);
    };
    switch (edit.kind) {
        case 0:
            return edit.value == 0 ? deleteTrackAsOwner(library, edit.track) : std::nullopt;
        case 1:
            return recordSkip(library, edit.track);
        case 2:
            return set("title", std::string(1, static_cast<char>('A' + edit.value)));
        case 3:
            return set("genre", edit.value % 2 == 0 ? "Jazz" : "Folk");
        case 4:
            return set("year", std::to_string(2000 + edit.value));
        case 5:
        case 6:
            return recordPlay(library, edit.track);
        default:
            return rateTrack(library, edit.track, static_cast<std::uint32_t>(edit.value));
    }
}

RC_GTEST_FIXTURE_PROP(SmartRefillTest, LeavesWhatAWholeFillingLeaves, ()) {
    open();
    for (int track = 1; track <= Tracks; ++track)
        add({.pid = track, .title = std::to_string(track)});
    std::vector<std::int64_t> playlists;
    for (const auto& [rules, limits] :
         std::vector<std::pair<const char*, std::vector<const char*>>>{
             {"all", {"", "4 by title", "5 by lowest rating"}},
             {"rating >= 3", {"", "1 by rating", "3 by play-count"}},
             {"play-count > 0", {"", "3 by play-count"}},
             {"play-count is 0", {"4 by title"}},
             {"genre is Jazz or year > 2003", {"", "5 by lowest rating"}},
             {"last-played in the last 2 weeks", {"9 by last-played"}}})
        for (const char* limit : limits)
            playlists.push_back(make(rules, limit));
    for (const Edit& edit : *rc::gen::container<std::vector<Edit>>(anyEdit())) {
        apply(*library, edit);
        for (const std::int64_t playlist : playlists)
            RC_ASSERT(entries(playlist) == expectedEntries(playlist));
    }
}

TEST_F(SmartRefillTest, AsksNoOtherTrack) {
    add({.pid = 1});
    add({.pid = 2});
    const auto best = make("rating >= 3", "");
    EXPECT_FALSE(rateTrack(*library, 1, 5));
    rateUnseen(2, 80);
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(best), ElementsAre(1));
    EXPECT_FALSE(renamePlaylist(*library, best, "Best"));
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(best), ElementsAre(1));
}

TEST_F(SmartRefillTest, AfterAnHourAllAreFilled) {
    add({.pid = 1});
    add({.pid = 2});
    const auto best = make("rating >= 3", "");
    EXPECT_FALSE(rateTrack(*library, 1, 5));
    rateUnseen(2, 80);
    system.now += 3'598;
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(best), ElementsAre(1));
    system.now += 2;
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(best), ElementsAre(1, 2));
    rateUnseen(2, 0);
    system.now -= 86'400;
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(best), ElementsAre(1));
}

TEST_F(SmartRefillTest, AfterAnotherChangeAllAreFilled) {
    add({.pid = 1});
    const auto all = make("all", "");
    EXPECT_FALSE(rateTrack(*library, 1, 5));
    add({.pid = 2});
    EXPECT_THAT(entries(all), ElementsAre(1));
    EXPECT_FALSE(rateTrack(*library, 1, 4));
    EXPECT_THAT(entries(all), ElementsAre(1, 2));
}

TEST_F(SmartRefillTest, AfterADeletionThatNobodyIsToldOfAllAreFilled) {
    for (const std::int64_t track : {1, 2, 3})
        add({.pid = track});
    const auto two = make("all", "2 by play-count");
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(two), ElementsAre(1, 2));
    const std::int64_t revision = library->currentRevision();
    execute("DELETE FROM item WHERE item_pid = 2");
    ASSERT_EQ(library->currentRevision(), revision);
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_THAT(entries(two), ElementsAre(1, 3));
}

}  // namespace
