#include "device/korvane/track.h"

#include "device/korvane/artwork_store.h"
#include "device/korvane/track_location.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using korvane::Track;
using platform::Value;

class LibraryTrack : public test::LibraryTest {
protected:
    Track track(std::int64_t pid) { return {pid, library}; }
    std::int64_t bySyncID(std::int64_t syncID) {
        return korvane::anyTrackMatching(*library,
                                         KV3ComparisonPredicate::predicateWithPropertyEqualToInt64(
                                             KV3TrackPropertySyncID, syncID));
    }
};

TEST_F(LibraryTrack, OneThatDoesNotExistAnswersAbsent) {
    Track none = track(99);
    EXPECT_FALSE(none.existsInLibrary());
    EXPECT_FALSE(none.deleteFromLibrary());
    EXPECT_TRUE(none.valueForProperty(KV3TrackPropertyTitle).isNull());
    EXPECT_TRUE(none.valueForProperty(KV3TrackPropertySyncID).isNull());
    EXPECT_FALSE(none.setValue(1, KV3TrackPropertyNeedsRestore));
    EXPECT_FALSE(none.populateLocationPropertiesWithPath("/var/mobile/Media/Purchases/a"));
    EXPECT_FALSE(none.needsVideoSnapshot());
    EXPECT_FALSE(none.createVideoSnapshotAtTime(5));
    EXPECT_EQ(none.description(), "<KV3Track: 99>");
}

TEST_F(LibraryTrack, ItsValuesHaveTheirDefaults) {
    add({.pid = 1, .title = "Title", .artist = "A", .album = "B", .albumArtist = "C"});
    Track one = track(1);
    EXPECT_TRUE(one.existsInLibrary());
    for (const auto property :
         {KV3TrackPropertySyncID, KV3TrackPropertyBaseLocationID, KV3TrackPropertyNeedsRestore})
        EXPECT_EQ(one.valueForProperty(property), Value(0)) << property;
    for (const auto property :
         {KV3TrackPropertyGlobalID, KV3TrackPropertyFilePath, KV3TrackPropertyDownloadIdentifier,
          KV3TrackPropertySyncArtworkToken, KV3TrackPropertyChapterData,
          KV3TrackPropertyKenningChecksum, KV3TrackPropertyStoreVeskaID,
          KV3TrackPropertyPodcastExternalGUID})
        EXPECT_TRUE(one.valueForProperty(property).isNull()) << property;
    const KV3TrackProperty names[] = {KV3TrackPropertyTitle, KV3TrackPropertyArtist,
                                      KV3TrackPropertyAlbum, KV3TrackPropertyAlbumArtist};
    EXPECT_EQ(one.getValues(names), (std::vector<Value>{"Title", "A", "B", "C"}));
    EXPECT_EQ(one.description(), "<KV3Track: 1, Title>");
}

TEST_F(LibraryTrack, ValuesAreSetAllOrNone) {
    add({.pid = 1});
    const KV3TrackProperty good[] = {KV3TrackPropertyNeedsRestore, KV3TrackPropertyStoreFlavor};
    const Value values[] = {true, "lossless"};
    EXPECT_TRUE(track(1).setValues(values, good));
    EXPECT_EQ(track(1).getValues(good), (std::vector<Value>{1, "lossless"}));
    const KV3TrackProperty bad[] = {KV3TrackPropertyNeedsRestore, KV3TrackPropertyFilePath};
    const Value others[] = {false, "x"};
    EXPECT_FALSE(track(1).setValues(others, bad));
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyNeedsRestore), Value(1));
}

TEST_F(LibraryTrack, SettingAnEqualValueIsNoChange) {
    add({.pid = 1, .title = "T"});
    const auto before = library->currentRevision();
    EXPECT_TRUE(track(1).setValue("T", KV3TrackPropertyTitle));
    EXPECT_EQ(library->currentRevision(), before);
    EXPECT_TRUE(track(1).setValue("U", KV3TrackPropertyTitle));
    EXPECT_GT(library->currentRevision(), before);
}

TEST_F(LibraryTrack, IsFoundByItsSyncID) {
    add({.pid = 1, .syncID = 10});
    add({.pid = 2, .syncID = -20});
    add({.pid = 3});
    EXPECT_EQ(bySyncID(10), 1);
    EXPECT_EQ(bySyncID(-20), 2);
    EXPECT_EQ(bySyncID(0), 3);
    EXPECT_EQ(bySyncID(30), 0);
}

TEST_F(LibraryTrack, ItsLocationIsTheLongestFolderThatIsKnown) {
    add({.pid = 1});
    const auto locate = [&](const std::string& path) {
        EXPECT_TRUE(track(1).populateLocationPropertiesWithPath(path));
        return track(1).valueForProperty(KV3TrackPropertyBaseLocationID).int64Value();
    };
    for (const char* path :
         {"/var/mobile/Media/Tessel_Control/Music/F01/ABCD.mp3",
          "/var/mobile/Media/Tessel_Control/Music/F-7/x.mp3",
          "/var/mobile/Media/Podcasts/Show/1.mp3", "/var/mobile/Media/Other/file.mp3"})
        writeFile(path, "12345");
    EXPECT_EQ(locate("/var/mobile/Media/Tessel_Control/Music/F01/ABCD.mp3"), 201);
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyFilePath),
              Value("/var/mobile/Media/Tessel_Control/Music/F01/ABCD.mp3"));
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyLocationFileName), Value("ABCD.mp3"));
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyTotalSize), Value(5));
    EXPECT_EQ(locate("/private/var/mobile/Media/Tessel_Control/Music/F-7/x.mp3"), 257);
    EXPECT_EQ(locate("/var/mobile/Media/Podcasts/Show/1.mp3"), 310);
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyFilePath),
              Value("/var/mobile/Media/Podcasts/Show/1.mp3"));
    const auto other = locate("/var/mobile/Media/Other/file.mp3");
    EXPECT_GT(other, 0);
    EXPECT_LT(other, 200);
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyFilePath),
              Value("/var/mobile/Media/Other/file.mp3"));
}

TEST_F(LibraryTrack, AMissingFileLeavesLocationZero) {
    add({.pid = 1});
    writeFile("/var/mobile/Media/Purchases/a.mp3", "x");
    EXPECT_TRUE(track(1).populateLocationPropertiesWithPath("/var/mobile/Media/Purchases/a.mp3"));
    for (const char* path : {"/var/mobile/Media/Purchases/b.mp3", "/var/mobile/Media/Purchases", "",
                             "relative", "/var/mobile/Media/Purchases/../../../etc/passwd",
                             "/etc/passwd", "/var/mobile/Media/Purchases//a.mp3"}) {
        EXPECT_TRUE(track(1).populateLocationPropertiesWithPath(path)) << path;
        EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyBaseLocationID), Value(0)) << path;
        EXPECT_TRUE(track(1).valueForProperty(KV3TrackPropertyFilePath).isNull()) << path;
    }
}

TEST_F(LibraryTrack, IntegrityClearsTheLocationsOfFilesThatAreGone) {
    for (int pid = 1; pid <= 4; ++pid)
        add({.pid = pid});
    const std::string paths[] = {"/var/mobile/Media/Purchases/1.mp3",
                                 "/var/mobile/Media/Podcasts/a/2.mp3",
                                 "/var/mobile/Media/Tessel_Control/Music/F00/3.mp3"};
    for (int i = 0; i < 3; ++i) {
        writeFile(paths[i], "x");
        track(i + 1).populateLocationPropertiesWithPath(paths[i]);
    }
    execute("UPDATE item SET base_location_id = 400 WHERE item_pid = 4");
    files.removeItem(paths[1]);
    files.removeItem("/var/mobile/Media/Tessel_Control/Music/F00");
    const auto revision = library->currentRevision();
    library->updateTrackIntegrity();
    const auto location = [&](int pid) {
        return track(pid).valueForProperty(KV3TrackPropertyBaseLocationID).int64Value();
    };
    EXPECT_EQ(location(1), 300);
    EXPECT_EQ(location(2), 0);
    EXPECT_EQ(location(3), 0);
    EXPECT_EQ(location(4), 400);
    EXPECT_EQ(library->currentRevision(), revision);
}

TEST_F(LibraryTrack, TheOwnersDeletionIsToldAndRemembered) {
    add({.pid = 1, .syncID = 5, .globalID = 77});
    track(1).setValue(80, KV3TrackPropertyUserRating);
    EXPECT_TRUE(track(1).deleteFromLibrary());
    EXPECT_FALSE(track(1).existsInLibrary());
    EXPECT_EQ(number("SELECT sync_id FROM entity_revision WHERE pid = 1 AND deleted = 1"), 5);
    EXPECT_EQ(number("SELECT revision FROM entity_revision WHERE pid = 1"),
              library->currentRevision());
    EXPECT_EQ(number("SELECT user_rating FROM removed_memory WHERE global_id = 77"), 80);
    EXPECT_EQ(number("SELECT count(*) FROM tombstone"), 1);
    library->removeTombstonesForDeletedItems();
    EXPECT_EQ(number("SELECT count(*) FROM tombstone"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted = 1"), 1);
    EXPECT_EQ(number("SELECT exports_deletions FROM change_state"), 0);
}

TEST_F(LibraryTrack, LosingItsLastSourceIsNotTold) {
    add({.pid = 1, .sources = 64});
    add({.pid = 2, .sources = 64 | 1});
    add({.pid = 3, .sources = 4});
    add({.pid = 4, .sources = 64});
    execute("UPDATE item SET needs_restore = 1 WHERE item_pid = 4");
    EXPECT_TRUE(library->removeSourceFromTracksWithPersistentIDs(2, {1, 2, 3, 4, 99}));
    EXPECT_FALSE(track(1).existsInLibrary());
    EXPECT_TRUE(track(2).existsInLibrary());
    EXPECT_FALSE(track(3).existsInLibrary());
    EXPECT_TRUE(track(4).existsInLibrary());
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted <> 0"), 0);
}

TEST_F(LibraryTrack, ResettingChangeSyncTakesOnlyWhatItBroughtIn) {
    add({.pid = 1, .sources = 4});
    add({.pid = 2, .sources = 64});
    add({.pid = 3, .sources = 4 | 64});
    execute("INSERT INTO container (container_pid, sources) VALUES (50, 4), (51, 1)");
    execute("INSERT INTO peer (peer_uid, received_revision) VALUES ('p', 9)");
    EXPECT_TRUE(library->removeSource(2));
    EXPECT_FALSE(track(1).existsInLibrary());
    EXPECT_TRUE(track(2).existsInLibrary());
    EXPECT_TRUE(track(3).existsInLibrary());
    EXPECT_EQ(number("SELECT count(*) FROM container WHERE auto_created = 0"), 1);
    EXPECT_EQ(number("SELECT received_revision FROM peer"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted <> 0"), 0);
}

class LibraryVideoTrack : public LibraryTrack {
protected:
    void SetUp() override {
        LibraryTrack::SetUp();
        add({.pid = 1, .mediaType = KV3MediaTypeHomeVideo});
        writeFile(_path, "film");
        track(1).populateLocationPropertiesWithPath(_path);
        track(1).setValue("token", KV3TrackPropertySyncArtworkToken);
        track(1).setValue(60'000, KV3TrackPropertyTotalTime);
    }
    const std::string _path = "/var/mobile/Media/Tessel_Control/Music/F00/film.mp4";
};

TEST_F(LibraryVideoTrack, TakesItsCoverFromTheFilmWithinItsLength) {
    EXPECT_TRUE(track(1).needsVideoSnapshot());
    EXPECT_TRUE(track(1).createVideoSnapshotAtTime(105));
    EXPECT_EQ(grabber.grabbed, (std::vector<std::pair<std::string, double>>{{_path, 60.0}}));
    EXPECT_TRUE(library->artwork().hasOriginal(korvane::artworkRelativePath("token")));
    EXPECT_EQ(number("SELECT source_type FROM artwork WHERE artwork_token = 'token'"), 3);
    EXPECT_FALSE(track(1).needsVideoSnapshot());
    EXPECT_FALSE(track(1).createVideoSnapshotAtTime(105));
}

TEST_F(LibraryVideoTrack, WithoutTokenFileOrFilmNeedsNone) {
    track(1).setValue(Value(), KV3TrackPropertySyncArtworkToken);
    EXPECT_FALSE(track(1).needsVideoSnapshot());
    track(1).setValue("token", KV3TrackPropertySyncArtworkToken);
    track(1).setValue(KV3MediaTypeMusic, KV3TrackPropertyMediaType);
    EXPECT_FALSE(track(1).needsVideoSnapshot());
    track(1).setValue(KV3MediaTypeMovie, KV3TrackPropertyMediaType);
    EXPECT_TRUE(track(1).needsVideoSnapshot());
    track(1).setValue(0, KV3TrackPropertyBaseLocationID);
    EXPECT_FALSE(track(1).needsVideoSnapshot());
}

TEST_F(LibraryVideoTrack, AFilmThatCannotBeReadGivesNoCover) {
    grabber.fails = true;
    EXPECT_FALSE(track(1).createVideoSnapshotAtTime(1));
    EXPECT_EQ(number("SELECT count(*) FROM artwork"), 0);
    EXPECT_TRUE(track(1).needsVideoSnapshot());
}

TEST_F(LibraryTrack, TheAbsolutePathIsThatOfTheFileAlsoWhenItIsMissing) {
    add({.pid = 1});
    EXPECT_FALSE(track(1).absoluteFilePath());
    EXPECT_FALSE(track(2).absoluteFilePath());
    const std::string path = "/var/mobile/Media/Tessel_Control/Music/F07/song.mp3";
    writeFile(path, "sound");
    ASSERT_TRUE(track(1).populateLocationPropertiesWithPath(path));
    EXPECT_EQ(track(1).absoluteFilePath(), path);
    files.removeItem(path);
    EXPECT_EQ(track(1).absoluteFilePath(), path);
}

TEST_F(LibraryTrack, TheCloudArtworkTokenDoesNotTravel) {
    add({.pid = 1});
    const auto before = library->currentRevision();
    EXPECT_TRUE(track(1).valueForProperty(KV3TrackPropertyCloudArtworkToken).isNull());
    EXPECT_TRUE(track(1).setValue("token", KV3TrackPropertyCloudArtworkToken));
    EXPECT_EQ(track(1).valueForProperty(KV3TrackPropertyCloudArtworkToken),
              platform::Value("token"));
    EXPECT_TRUE(track(1).setValue("", KV3TrackPropertyCloudArtworkToken));
    EXPECT_TRUE(track(1).valueForProperty(KV3TrackPropertyCloudArtworkToken).isNull());
    EXPECT_EQ(library->currentRevision(), before);
}

TEST_F(LibraryTrack, KnowsTheHashOfAFileThatNoStoreSent) {
    add({.pid = 77, .syncID = 78});
    const auto hash = [&] {
        return library->connections().reading<std::string>(
            [](common::Database& database) { return korvane::hashOfFile(database, 77); });
    };
    EXPECT_EQ(hash(), "");
    execute("UPDATE item_extra SET content_hash = CAST('0123456789abcdef' AS BLOB)");
    execute("UPDATE item SET base_location_id = 205");
    EXPECT_EQ(hash(), "0123456789abcdef");
    execute("UPDATE item SET base_location_id = 300");
    EXPECT_EQ(hash(), "");
    execute("UPDATE item SET base_location_id = 400");
    EXPECT_EQ(hash(), "");
    execute("UPDATE item SET base_location_id = 205");
    execute("UPDATE item_extra SET content_hash = x'00'");
    EXPECT_EQ(hash(), "");
}

}  // namespace
