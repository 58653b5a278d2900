// What owners edit: fields of tracks and entries of playlists.
#include <gmock/gmock.h>

#include "device/korvane/listing.h"
#include "device/korvane/owner_edits.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace test;
using korvane::FieldEdit;

class OwnerFields : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        add({.pid = 11, .title = "One", .artist = "X", .album = "Old", .globalID = 1});
        add({.pid = 12, .title = "Two", .album = "Old", .globalID = 2});
        add({.pid = 13, .title = "Three", .globalID = 3});
    }
    platform::OptionalError set(std::vector<FieldEdit> edits, std::int64_t pid = 11) {
        return korvane::setTrackFields(*library, pid, edits);
    }
    std::vector<std::int64_t> tracksOf(std::int64_t playlist) {
        std::vector<std::int64_t> tracks;
        korvane::listPlaylists(*library, [&](const korvane::ListedPlaylist& listed) {
            if (listed.persistentID == playlist)
                tracks = listed.tracks;
            return true;
        });
        return tracks;
    }
};

TEST_F(OwnerFields, EveryFieldTakesAValueAndGivesItUpAgain) {
    for (const std::string_view field : korvane::editableTrackFields()) {
        SCOPED_TRACE(field);
        const std::int64_t before = library->currentRevision();
        EXPECT_FALSE(set({{std::string(field), "1"}}));
        EXPECT_GT(library->currentRevision(), before);
        EXPECT_FALSE(set({{std::string(field), ""}}));
    }
    EXPECT_EQ(number("SELECT count(*) FROM field_change WHERE item_pid = 11"),
              static_cast<std::int64_t>(korvane::editableTrackFields().size()));
}

TEST_F(OwnerFields, AnEqualValueIsNoChange) {
    const std::int64_t before = library->currentRevision();
    EXPECT_FALSE(set({{"title", "One"}, {"Album", "Old"}, {"year", "0"}}));
    EXPECT_EQ(library->currentRevision(), before);
    EXPECT_EQ(number("SELECT count(*) FROM field_change"), 0);
}

TEST_F(OwnerFields, AllEditsOfACallAreOneChangeOrNone) {
    const std::int64_t before = library->currentRevision();
    const auto error = set({{"title", "New"}, {"colour", "red"}});
    ASSERT_TRUE(error);
    EXPECT_THAT(error->text(), testing::HasSubstr("colour"));
    EXPECT_EQ(library->currentRevision(), before);
    EXPECT_FALSE(set({{"title", "New"}, {"Album_Artist", "Y"}, {"compilation", "yes"}}));
    EXPECT_EQ(library->currentRevision(), before + 1);
    EXPECT_EQ(number("SELECT count(*) FROM album WHERE name = 'Old'"), 2);
}

TEST_F(OwnerFields, ValuesThatMakeNoSenseAreRefused) {
    for (const FieldEdit& edit : std::vector<FieldEdit>{{"year", "-1"},
                                                        {"year", "10000"},
                                                        {"year", "19x"},
                                                        {"track", "99999999999999999999"},
                                                        {"compilation", "perhaps"},
                                                        {"title", std::string(5000, 'x')},
                                                        {"title", "\xff"},
                                                        {"title", std::string("a\0b", 3)}}) {
        EXPECT_TRUE(set({edit})) << edit.field;
    }
    EXPECT_TRUE(set({{"title", "x"}}, 99));
}

TEST_F(OwnerFields, ADeletedTrackLeavesAndIsTold) {
    EXPECT_FALSE(korvane::deleteTrackAsOwner(*library, 11));
    EXPECT_TRUE(korvane::deleteTrackAsOwner(*library, 11));
    EXPECT_EQ(number("SELECT deleted_ms FROM entity_revision WHERE deleted <> 0"),
              library->nowMilliseconds());
    EXPECT_EQ(number("SELECT count(*) FROM item_artist"), 0);
}

TEST_F(OwnerFields, EntriesOfAPlaylistAreAddedMovedAndTakenOut) {
    platform::OptionalError error;
    const std::int64_t list = korvane::createPlaylist(*library, "List", error);
    EXPECT_FALSE(korvane::addToPlaylist(*library, list, {11, 12, 13, 11}));
    EXPECT_FALSE(korvane::moveInPlaylist(*library, list, 3, 1));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11, 11, 12, 13));
    EXPECT_FALSE(korvane::moveInPlaylist(*library, list, 0, 3));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11, 12, 13, 11));
    EXPECT_FALSE(korvane::removeFromPlaylist(*library, list, 1));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11, 13, 11));
    // An entry without its track keeps its place and is not counted.
    EXPECT_FALSE(korvane::deleteTrackAsOwner(*library, 13));
    EXPECT_FALSE(korvane::removeFromPlaylist(*library, list, 1));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11));
    EXPECT_TRUE(korvane::removeFromPlaylist(*library, list, 1));
    EXPECT_TRUE(korvane::moveInPlaylist(*library, list, 0, 1));
    EXPECT_TRUE(korvane::addToPlaylist(*library, list, {999}));
    EXPECT_EQ(korvane::createPlaylist(*library, "", error), 0);
    EXPECT_TRUE(error);
}

TEST_F(OwnerFields, APlaylistIsMadeWithItsTracksOrNotAtAll) {
    platform::OptionalError error;
    EXPECT_EQ(korvane::createPlaylist(*library, "Bad", error, {11, 999}), 0);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, korvane::LibraryErrorNotFound);
    EXPECT_EQ(number("SELECT count(*) FROM container WHERE name = 'Bad'"), 0);
    const std::int64_t list = korvane::createPlaylist(*library, "Good", error, {11, 12});
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11, 12));
}

TEST_F(OwnerFields, TracksAreAddedAtAPlaceAndTakenOutWhereverTheyStand) {
    platform::OptionalError error;
    const std::int64_t list = korvane::createPlaylist(*library, "List", error, {11, 12});
    EXPECT_FALSE(korvane::addToPlaylist(*library, list, {13, 11}, 1));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(11, 13, 11, 12));
    EXPECT_FALSE(korvane::addToPlaylist(*library, list, {13}, 4));
    EXPECT_TRUE(korvane::addToPlaylist(*library, list, {13}, 6));
    EXPECT_FALSE(korvane::removeTracksFromPlaylist(*library, list, {11, 12}));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(13, 13));
    EXPECT_TRUE(korvane::removeTracksFromPlaylist(*library, list, {13, 11}));
    EXPECT_THAT(tracksOf(list), testing::ElementsAre(13, 13));
}

TEST_F(OwnerFields, APlaylistIsFoundByItsIdOrByANameThatOnlyOneHas) {
    platform::OptionalError error;
    const std::int64_t first = korvane::createPlaylist(*library, "Twin", error);
    EXPECT_EQ(korvane::findPlaylist(*library, "Twin", error)->persistentID, first);
    korvane::createPlaylist(*library, "Twin", error);
    EXPECT_FALSE(korvane::findPlaylist(*library, "Twin", error));
    EXPECT_EQ(error->code, korvane::LibraryErrorNotFound);
    EXPECT_EQ(korvane::findPlaylist(*library, std::to_string(first), error)->name, "Twin");
    EXPECT_FALSE(korvane::findPlaylist(*library, "Nobody", error));
}

}  // namespace
