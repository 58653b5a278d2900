#include <gmock/gmock.h>

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/listing.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/track.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using namespace korvane;
using platform::Value;
using testing::ElementsAre;

class LibraryOwner : public test::LibraryTest {
protected:
    std::int64_t found(const std::string& name) {
        platform::OptionalError error;
        const auto track = findTrack(*library, name, error);
        EXPECT_EQ(track.has_value(), !error);
        return track ? track->persistentID : 0;
    }
};

TEST_F(LibraryOwner, NamesATrackByIdSyncIdOrOnlyTitle) {
    add({.pid = 1, .syncID = 10, .title = "One"});
    add({.pid = 2, .syncID = 11, .title = "Two"});
    add({.pid = 3, .title = "Two"});
    add({.pid = 4, .title = "77"});
    EXPECT_EQ(found("1"), 1);
    EXPECT_EQ(found("11"), 2);
    EXPECT_EQ(found("One"), 1);
    EXPECT_EQ(found("Two"), 0);
    EXPECT_EQ(found("77"), 4);
    EXPECT_EQ(found("0"), 0);
    EXPECT_EQ(found("' OR 1=1"), 0);
}

TEST_F(LibraryOwner, RatesWithTheTimeOfTheChange) {
    add({.pid = 1});
    EXPECT_FALSE(rateTrack(*library, 1, 4));
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 80);
    EXPECT_EQ(number("SELECT rating_changed_ms FROM item_stats"), 1'700'000'000'000);
    EXPECT_TRUE(rateTrack(*library, 1, 6));
    EXPECT_TRUE(rateTrack(*library, 2, 1));
}

TEST_F(LibraryOwner, PlaysAreCountedUnderThisLibrary) {
    add({.pid = 1});
    execute(
        "INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (1, 'other', 5)");
    const auto before = library->currentRevision();
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_GT(library->currentRevision(), before);
    EXPECT_FALSE(recordPlay(*library, 1));
    EXPECT_FALSE(recordSkip(*library, 1));
    EXPECT_EQ(Track(1, library).valueForProperty(KV3TrackPropertyPlayCountUser), Value(7));
    EXPECT_EQ(number("SELECT skip_count FROM item_stats"), 1);
    EXPECT_EQ(number("SELECT last_played_ms FROM item_stats"), 1'700'000'000'000);
    EXPECT_TRUE(recordPlay(*library, 2));
    EXPECT_EQ(number("SELECT count(*) FROM play_statistics"), 2);
}

TEST_F(LibraryOwner, PlaylistsAreMadeFilledRenamedAndRemoved) {
    add({.pid = 1});
    add({.pid = 2});
    platform::OptionalError error;
    const auto pid = createPlaylist(*library, "Mine", error);
    ASSERT_GT(pid, 0);
    EXPECT_FALSE(addToPlaylist(*library, pid, {2, 1}));
    EXPECT_FALSE(addToPlaylist(*library, pid, {2}));
    EXPECT_TRUE(addToPlaylist(*library, pid, {1, 99}));
    EXPECT_FALSE(renamePlaylist(*library, pid, "Ours"));
    std::vector<ListedPlaylist> listed;
    listPlaylists(*library, [&](const ListedPlaylist& playlist) {
        if (!playlist.isBuiltIn)
            listed.push_back(playlist);
        return true;
    });
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].name, "Ours");
    EXPECT_FALSE(listed[0].isSmart);
    EXPECT_THAT(listed[0].tracks, ElementsAre(2, 1, 2));
    EXPECT_FALSE(removePlaylist(*library, pid));
    EXPECT_TRUE(removePlaylist(*library, pid));
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE entity_kind = 1 AND deleted = 1"),
              1);
}

TEST_F(LibraryOwner, ASmartPlaylistTakesNoTracksByHand) {
    add({.pid = 1});
    const auto pid = library->autoCreatedBuiltInSmartPlaylistsPIDs().front();
    EXPECT_TRUE(addToPlaylist(*library, pid, {1}));
}

TEST_F(LibraryOwner, TracksAreListedInOrderWithAllThatTheyHave) {
    add({.pid = 1, .title = "Later", .albumArtist = "b"});
    add({.pid = 2,
         .syncID = 9,
         .title = "First",
         .artist = "Artist",
         .album = "Album",
         .albumArtist = "A",
         .disc = 1,
         .number = 3,
         .globalID = 44,
         .sources = 64});
    const std::string path = "/var/mobile/Media/Purchases/a.mp3";
    writeFile(path, "12345");
    Track track(2, library);
    track.populateLocationPropertiesWithPath(path);
    track.setValue(*common::encodeChapters({{0, "x", ""}, {5, "y", ""}}),
                   KV3TrackPropertyChapterData);
    track.setValue("token", KV3TrackPropertySyncArtworkToken);
    track.setValue(7, KV3TrackPropertyGlobalID);
    execute("INSERT INTO kenning_metadata (kenning_id) VALUES (7)");
    writeFile("/var/mobile/Media/x", "picture");
    library->importOriginalArtworkFromFileURL("/var/mobile/Media/x", "token", 1, 2, 8);
    rateTrack(*library, 2, 5);
    recordPlay(*library, 2);

    std::vector<std::int64_t> pids;
    listTracks(*library, [&](const ListedTrack& row) {
        pids.push_back(row.persistentID);
        if (row.persistentID != 2) {
            EXPECT_EQ(row.path, "");
            EXPECT_FALSE(row.artist);
            EXPECT_FALSE(row.hasArtwork);
            return true;
        }
        EXPECT_EQ(row.syncID, 9);
        EXPECT_EQ(row.globalID, 44);
        EXPECT_EQ(row.title, "First");
        EXPECT_EQ(row.artist, "Artist");
        EXPECT_EQ(row.album, "Album");
        EXPECT_EQ(row.discNumber, 1u);
        EXPECT_EQ(row.trackNumber, 3u);
        EXPECT_EQ(row.mediaType, KV3MediaTypeMusic);
        EXPECT_EQ(row.path, path);
        EXPECT_EQ(row.size, 5u);
        EXPECT_TRUE(row.hasArtwork);
        EXPECT_TRUE(row.hasKenning);
        EXPECT_EQ(row.chapters, 2u);
        EXPECT_EQ(row.rating, 100u);
        EXPECT_EQ(row.playCount, 1u);
        EXPECT_TRUE(row.isFromHost);
        return true;
    });
    EXPECT_THAT(pids, ElementsAre(2, 1));
}

TEST_F(LibraryOwner, AListEndsWhenItsReaderHasEnough) {
    for (int pid = 1; pid <= 5; ++pid)
        add({.pid = pid});
    int rows = 0;
    listTracks(*library, [&](const ListedTrack&) { return ++rows < 2; });
    EXPECT_EQ(rows, 2);
}

TEST_F(LibraryOwner, CountsTracksPlaylistsAndMissingFiles) {
    add({.pid = 1, .sources = 64});
    add({.pid = 2, .sources = 1});
    add({.pid = 3, .sources = 64});
    execute("UPDATE item SET base_location_id = 200 WHERE item_pid = 3");
    const auto counts = libraryCounts(*library);
    EXPECT_EQ(counts.tracks, 3u);
    EXPECT_EQ(counts.playlists, 5u);
    EXPECT_EQ(counts.missingFiles, 1u);
    EXPECT_THAT(filesHeldByHostAlone(*library),
                ElementsAre("/var/mobile/Media/Tessel_Control/Music/F00/"));
}

}  // namespace
