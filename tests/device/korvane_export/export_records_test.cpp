// What exported records hold: the rows, and the peer's own ids.
#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/save/column_values.h"
#include "tests/device/korvane_export/export_fixture.h"

namespace {

using namespace test;
using google::protobuf::util::MessageDifferencer;
using testing::ElementsAre;

class ExportRecords : public ExportTest {
protected:
    // The peer's id of an entry of ours.
    void know(const std::string& peer, int kind, std::int64_t peerPID, std::int64_t pid) {
        ASSERT_TRUE(library->connections().write([&](common::Database& database) {
            database.execute("INSERT OR IGNORE INTO peer (peer_uid) VALUES (?)", peer);
            database.execute(
                "INSERT INTO peer_identity (peer_id, entity_kind, peer_pid, pid) SELECT peer_id, "
                "?2, ?3, ?4 FROM peer WHERE peer_uid = ?1",
                peer, kind, peerPID, pid);
            return true;
        }));
    }
};

// Every field of a host's track, each with a value of its own.
qorx::Track& fullTrack(HostData& data) {
    qorx::Track& track = data.add(-17, "Tïtle ☃");
    track.set_artist("Artist");
    track.set_album("Album");
    track.set_album_artist("Album artist");
    track.set_composer("Composer");
    track.set_genre("Genre");
    track.set_comment("Comment");
    track.set_grouping("Grouping");
    track.set_sort_title("sort title");
    track.set_sort_artist("sort artist");
    track.set_sort_album("sort album");
    track.set_sort_album_artist("sort album artist");
    track.set_year(1999);
    track.set_disc_number(2);
    track.set_disc_count(3);
    track.set_track_number(4);
    track.set_track_count(5);
    track.set_compilation(true);
    track.set_total_time_ms(123'456);
    track.set_total_size(5'000'000'000);
    track.set_bit_rate(320'000);
    track.set_sample_rate(48'000);
    track.set_bpm(120);
    track.set_file_extension("m4a");
    track.set_content_hash("0123456789abcdef");
    track.set_host_path("Folder/\xff.m4a");
    track.set_date_added(1'600'000'000);
    track.set_release_date(1'500'000'000);
    track.set_is_rental(true);
    track.set_show("Show");
    track.set_season_number(6);
    track.set_episode_number(7);
    track.set_episode_id("s6e7");
    track.set_description("Description");
    track.set_artwork_token("cover");
    const auto chapters = common::encodeChapters({{0, "One", "chapter-1"}});
    track.set_chapter_data(std::string(chapters->begin(), chapters->end()));
    track.set_kenning_id(-18);
    track.set_kenning_checksum(-19);
    track.mutable_store()->set_account_id(20);
    track.mutable_store()->set_item_id(21);
    track.mutable_store()->set_flavor("256");
    track.mutable_store()->set_matched_status(22);
    track.mutable_store()->set_redownloaded_status(0);
    track.mutable_store()->set_veska_id(24);
    track.mutable_store()->set_podcast_guid("guid");
    track.mutable_rating()->set_value(80);
    track.mutable_rating()->set_changed_ms(1'650'000'000'000);
    track.mutable_bookmark()->set_position_ms(9'000);
    track.mutable_bookmark()->set_changed_ms(1'660'000'000'000);
    qorx::PlayStatistics& plays = *track.add_plays();
    plays.set_origin_uid("host-1");
    plays.set_play_count(3);
    plays.set_skip_count(4);
    plays.set_last_played_ms(1'670'000'000'000);
    plays.set_last_skipped_ms(1'680'000'000'000);
    return track;
}

TEST_F(ExportRecords, ATrackCarriesAllThatTheHostGaveIt) {
    HostData data;
    const qorx::Track given = fullTrack(data);
    imports(data);
    qorx::Track track = exportOne(pidOf(-17));
    EXPECT_EQ(track.persistent_id(), pidOf(-17));
    EXPECT_EQ(track.own_id(), 0);
    EXPECT_EQ(track.added_ms(), number("SELECT added_ms FROM item"));
    EXPECT_EQ(track.metadata_changed_ms(), number("SELECT metadata_changed_ms FROM item"));
    EXPECT_GT(track.added_ms(), 0);
    track.clear_persistent_id();
    track.clear_added_ms();
    track.clear_metadata_changed_ms();
    std::string difference;
    MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&difference);
    EXPECT_TRUE(differencer.Compare(given, track)) << difference;
}

TEST_F(ExportRecords, ATrackWithoutAnyValueHasNoFieldButItsIds) {
    add({.pid = 5, .mediaType = 0});
    const qorx::Track track = exportOne(5);
    qorx::Track expected;
    expected.set_persistent_id(5);
    EXPECT_TRUE(MessageDifferencer::Equals(track, expected)) << track.DebugString();
}

TEST_F(ExportRecords, ValuesOfOneTrackAreNotThoseOfTheNext) {
    HostData data;
    fullTrack(data);
    imports(data);
    add({.pid = 5, .mediaType = 0});
    const Exported exported = exportAll();
    ASSERT_EQ(exported.tracks.size(), 2u);
    EXPECT_EQ(exported.tracks[1].ByteSizeLong(), exportOne(5).ByteSizeLong());
}

TEST_F(ExportRecords, FieldsThatChangedLaterCarryTheirTimes) {
    add({.pid = 5});
    execute("UPDATE item SET metadata_changed_ms = 100");
    execute(
        "INSERT INTO field_change (item_pid, field, changed_ms) VALUES (5, 30, 300), "
        "(5, 6, 200)");
    const qorx::Track track = exportOne(5);
    ASSERT_EQ(track.field_changes_size(), 2);
    EXPECT_EQ(track.metadata_changed_ms(), 100);
    EXPECT_EQ(track.field_changes(0).field(), 6u);
    EXPECT_EQ(track.field_changes(0).changed_ms(), 200);
    EXPECT_EQ(track.field_changes(1).field(), 30u);
}

TEST_F(ExportRecords, PlaysOfEachOriginTravelAndThoseThatAreZeroDoNot) {
    add({.pid = 5});
    execute("INSERT INTO play_statistics (item_pid, origin_uid) VALUES (5, 'nobody')");
    EXPECT_EQ(exportOne(5).plays_size(), 0);
    execute(
        "INSERT INTO play_statistics (item_pid, origin_uid, last_skipped_ms) "
        "VALUES (5, 'b', 9)");
    execute("INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (5, 'a', 3)");
    const qorx::Track track = exportOne(5);
    ASSERT_EQ(track.plays_size(), 3);
    EXPECT_EQ(track.plays(0).origin_uid(), "a");
    EXPECT_EQ(track.plays(0).play_count(), 3u);
    EXPECT_EQ(track.plays(1).last_skipped_ms(), 9);
}

TEST_F(ExportRecords, TheCoverOfATrackThatACompanionPulledKeepsItsToken) {
    add({.pid = 5});
    execute("UPDATE item_artwork SET cloud_artwork_token = 'cloud'");
    EXPECT_EQ(exportOne(5).artwork_token(), "cloud");
    execute("UPDATE item_artwork SET sync_artwork_token = 'sync'");
    EXPECT_EQ(exportOne(5).artwork_token(), "sync");
    execute("UPDATE item_artwork SET sync_artwork_token = '', cloud_artwork_token = ''");
    EXPECT_FALSE(exportOne(5).has_artwork_token());
}

TEST_F(ExportRecords, ThePeersOwnIdsStandInTheRecordsForIt) {
    addTracks(3);
    addPlaylist(7, "Mixed");
    addPlaylist(8, "Gone");
    execute(
        "INSERT INTO container_item (container_id, position, item_pid, foreign_pid) SELECT "
        "container_id, 1, 1000, 0 FROM container WHERE container_pid = 7 UNION ALL SELECT "
        "container_id, 2, 2000, 0 FROM container WHERE container_pid = 7");
    know("peer-1", 0, -11, 1000);
    know("peer-1", 0, 13, 3000);
    know("peer-1", 1, 17, 7);
    know("peer-1", 1, 18, 8);
    know("peer-2", 0, 99, 2000);
    deleteTrack(3000);
    deletePlaylist(8);
    library->exportTarget().set("peer-1");
    const Exported exported = exportAll();
    ASSERT_EQ(exported.tracks.size(), 2u);
    EXPECT_EQ(exported.tracks[0].own_id(), -11);
    EXPECT_EQ(exported.tracks[1].own_id(), 0);
    ASSERT_EQ(exported.playlists.size(), 1u);
    EXPECT_EQ(exported.playlists[0].own_id(), 17);
    EXPECT_EQ(exported.playlists[0].items(0).own_id(), -11);
    EXPECT_EQ(exported.playlists[0].items(1).own_id(), 0);
    ASSERT_EQ(exported.deletions.size(), 2u);
    EXPECT_EQ(exported.deletions[0].own_id(), 18);
    EXPECT_EQ(exported.deletions[1].own_id(), 13);
    library->exportTarget().set("stranger");
    EXPECT_EQ(exportAll().tracks[0].own_id(), 0);
}

TEST_F(ExportRecords, TheIdThatThePeersLastFullExchangeNamedComesFirst) {
    addTracks(1);
    know("peer-1", 0, 5, 1000);
    know("peer-1", 0, 6, 1000);
    execute("UPDATE peer_identity SET claimed = 0 WHERE peer_pid = 5");
    library->exportTarget().set("peer-1");
    EXPECT_EQ(exportOne(1000).own_id(), 6);
}

TEST_F(ExportRecords, ADeletionTellsWhatWasDeletedAndWhen) {
    add({.pid = 5, .syncID = -6, .mediaType = KV3MediaTypePodcast, .globalID = 7});
    addPlaylist(8, "Gone");
    deleteTrack(5);
    deletePlaylist(8);
    const Exported exported = exportAll();
    ASSERT_EQ(exported.deletions.size(), 2u);
    const qorx::Deletion& playlist = exported.deletions[0];
    EXPECT_EQ(playlist.entity(), qorx::Deletion::PLAYLIST);
    EXPECT_EQ(playlist.persistent_id(), 8);
    EXPECT_EQ(playlist.sync_id(), 16);
    EXPECT_EQ(playlist.global_id(), 24);
    EXPECT_EQ(playlist.deleted_ms(), 6000);
    const qorx::Deletion& track = exported.deletions[1];
    EXPECT_EQ(track.entity(), qorx::Deletion::TRACK);
    EXPECT_EQ(track.persistent_id(), 5);
    EXPECT_EQ(track.sync_id(), -6);
    EXPECT_EQ(track.global_id(), 7);
    EXPECT_EQ(track.media_type(), KV3MediaTypePodcast);
    EXPECT_EQ(track.deleted_ms(), 5000);
}

TEST_F(ExportRecords, APlaylistCarriesItsEntriesInOrderAlsoThoseThatAreNotHere) {
    addTracks(1);
    addPlaylist(7, "Mixed");
    execute("UPDATE container SET added_ms = 10, name_changed_ms = 20, items_changed_ms = 30");
    execute(
        "INSERT INTO container_item (container_id, position, item_pid, foreign_pid, "
        "foreign_sync_id, foreign_global_id) SELECT container_id, 5, 1000, 0, 0, 0 FROM "
        "container UNION ALL SELECT container_id, 1, 0, -2, 3, 4 FROM container");
    const Exported exported = exportAll();
    ASSERT_EQ(exported.playlists.size(), 1u);
    const qorx::Playlist& playlist = exported.playlists.front();
    EXPECT_EQ(playlist.name(), "Mixed");
    EXPECT_EQ(playlist.sync_id(), 14);
    EXPECT_EQ(playlist.global_id(), 21);
    EXPECT_EQ(playlist.added_ms(), 10);
    EXPECT_EQ(playlist.name_changed_ms(), 20);
    EXPECT_EQ(playlist.items_changed_ms(), 30);
    ASSERT_EQ(playlist.items_size(), 2);
    EXPECT_EQ(playlist.items(0).persistent_id(), -2);
    EXPECT_EQ(playlist.items(0).sync_id(), 3);
    EXPECT_EQ(playlist.items(0).global_id(), 4);
    EXPECT_EQ(playlist.items(1).persistent_id(), 1000);
    EXPECT_EQ(playlist.items(1).sync_id(), 1);
}

TEST_F(ExportRecords, BytesThatAreNoTextBecomeReplacementCharacters) {
    add({.pid = 5});
    execute("UPDATE item_extra SET title = CAST(x'616263646566676869ff6a' AS TEXT)");
    EXPECT_EQ(exportOne(5).title(), "abcdefghi\uFFFDj");
}

TEST(ColumnValues, TextsKeepEverythingThatIsUtf8) {
    const auto made = [](std::string_view raw) {
        std::string field = "what it held";
        korvane::setText(raw, field);
        return field;
    };
    for (const std::string_view whole :
         {"", "a", "12345678", "123456789", "☃", "1234567☃", "12345678☃", "☃☃☃☃ and ASCII ☃"})
        EXPECT_EQ(made(whole), whole);
    EXPECT_EQ(made("\x80"), "\uFFFD");
    EXPECT_EQ(made("12345678\xe2\x98"), "12345678\uFFFD\uFFFD");
    EXPECT_EQ(made("\xff☃\xff\xff"
                   "a"),
              "\uFFFD☃\uFFFD\uFFFDa");
    EXPECT_EQ(made("\xed\xa0\x80"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(made(std::string_view("a\0b", 3)), std::string_view("a\0b", 3));
}

}  // namespace
