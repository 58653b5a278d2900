// What an import of a host's data brings, changes, removes and leaves alone.
#include <gmock/gmock.h>

#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;
using testing::HasSubstr;

class HostDataImport : public ImportTest {};

TEST_F(HostDataImport, BringsTracksWithAllTheirColumns) {
    HostData data;
    qorx::Track& track = data.add(11, "A title");
    track.set_artist("An artist");
    track.set_album("An album");
    track.set_album_artist("Various");
    track.set_total_size(1234);
    track.set_kenning_id(77);
    track.set_kenning_checksum(88);
    track.set_artwork_token("token-1");
    track.set_chapter_data(std::string("\x01\x00\x02", 3));
    track.mutable_store()->set_item_id(0);
    track.mutable_rating()->set_value(80);
    track.mutable_rating()->set_changed_ms(5);
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item JOIN item_extra USING (item_id) JOIN item_store"
                     " USING (item_id) JOIN item_stats USING (item_id)"
                     " JOIN item_artwork USING (item_id)"),
              1);
    EXPECT_EQ(number("SELECT sources FROM item"), HostBit);
    EXPECT_EQ(text("SELECT title FROM item_extra"), "A title");
    EXPECT_EQ(text("SELECT name FROM album JOIN item USING (album_pid)"), "An album");
    EXPECT_EQ(text("SELECT name FROM album_artist JOIN item USING (album_artist_pid)"), "Various");
    EXPECT_EQ(text("SELECT name FROM item_artist JOIN item USING (item_artist_pid)"), "An artist");
    EXPECT_EQ(number("SELECT total_size FROM item_extra"), 1234);
    EXPECT_EQ(number("SELECT kenning_id FROM item_extra"), 77);
    EXPECT_EQ(number("SELECT pending_kenning_checksum FROM item_extra"), 88);
    EXPECT_EQ(text("SELECT sync_artwork_token FROM item_artwork"), "token-1");
    EXPECT_EQ(number("SELECT length(chapter_data) FROM item_extra"), 3);
    EXPECT_EQ(number("SELECT store_item_id IS 0 AND account_id IS NULL FROM item_store"), 1);
    EXPECT_EQ(number("SELECT user_rating FROM item_stats"), 80);
    EXPECT_GT(number("SELECT item_pid FROM item"), 0);
    EXPECT_NE(number("SELECT item_pid FROM item"), 11);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 0);
}

TEST_F(HostDataImport, PlacesTracksAmongTheOthers) {
    HostData data;
    const char* albums[] = {"Beta", "alpha", "Gamma"};
    for (int i = 0; i < 3; ++i) {
        qorx::Track& track = data.add(i + 1, "t");
        track.set_album(albums[i]);
        track.set_artist(albums[i]);
    }
    imports(data);
    EXPECT_EQ(text("SELECT group_concat(sync_id) FROM (SELECT sync_id FROM item JOIN item_store"
                   " USING (item_id) ORDER BY album_order)"),
              "2,1,3");
    data.tracks[1].set_album("Zeta");
    data.tracks[1].set_artist("Zeta");
    imports(data);
    EXPECT_EQ(text("SELECT group_concat(sync_id) FROM (SELECT sync_id FROM item JOIN item_store"
                   " USING (item_id) ORDER BY album_artist_order)"),
              "1,3,2");
}

TEST_F(HostDataImport, StoresTheAnchorAndTheRevisionThatWasSaved) {
    HostData first;
    first.add(1, "One");
    const std::int64_t atStart = revision();
    save(0);
    imports(first, false, "anchor-1");
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientSyncAnchor"), "anchor-1");
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), atStart);
    const std::int64_t atSave = revision();
    ASSERT_GT(atSave, atStart);
    save(0);
    first.add(2, "Two");
    imports(first, false, "anchor-2");
    EXPECT_GT(revision(), atSave);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientSyncAnchor"), "anchor-2");
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), atSave);
}

TEST_F(HostDataImport, WithoutDataEndsWithAnErrorAndStoresNoAnchor) {
    ImportResult result;
    service->performImportFromSource(KV3SourceHostData, korvane::DefaultDatabasePath, std::nullopt,
                                     std::nullopt, options(false, "9"),
                                     [&](bool success, const platform::OptionalError& error) {
                                         ++result.calls;
                                         result.success = success;
                                         result.error = error;
                                     });
    system.queue->runAll();
    EXPECT_EQ(result.calls, 1);
    EXPECT_FALSE(result.success);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, KVMediaLibraryServiceErrorDomain);
    EXPECT_EQ(result.error->code, KVMediaLibraryServiceErrorNoData);
    EXPECT_TRUE(library->valueForDatabaseProperty("KVSyncClientSyncAnchor").isNull());
}

TEST_F(HostDataImport, TheSameDataAgainWriteNoRowAndGiveNoRevision) {
    HostData data;
    for (int i = 1; i <= 50; ++i) {
        qorx::Track& track = data.add(i, "Title " + std::to_string(i));
        track.set_artist("Artist");
        track.set_album("Album");
        track.set_chapter_data("");
        track.set_comment("");
        track.set_total_size(UINT64_MAX);
        track.set_file_extension("../x");
        qorx::PlayStatistics& plays = *track.add_plays();
        plays.set_origin_uid("host-1");
        plays.set_play_count(3);
        track.mutable_rating()->set_value(200);
    }
    data.addPlaylist(501, "List", {1, 2, 999, 3});
    qorx::Playlist& smart = data.addPlaylist(502, "Smart", {});
    smart.set_kind(qorx::Playlist::SMART);
    smart.set_smart_rules("rules");
    data.remove(77);
    imports(data);
    const std::int64_t rows = changedRows();
    const std::int64_t before = revision();
    imports(data);
    EXPECT_EQ(changedRows(), rows);
    EXPECT_EQ(revision(), before);
    imports(data, true);
    EXPECT_EQ(changedRows(), rows);
}

TEST_F(HostDataImport, AChangeReplacesWhatTheHostSaysAndGivesOneRevision) {
    HostData data;
    qorx::Track& track = data.add(1, "Before");
    track.set_album("Old album");
    track.set_genre("Old genre");
    data.add(2, "Other");
    imports(data);
    const std::int64_t before = revision();
    data.tracks[0].set_title("After");
    data.tracks[0].set_album("New album");
    data.tracks[0].clear_genre();
    imports(data);
    EXPECT_EQ(revision(), before + 1);
    EXPECT_EQ(text("SELECT title FROM item_extra JOIN item_store USING (item_id) WHERE sync_id=1"),
              "After");
    EXPECT_EQ(number("SELECT genre IS NULL FROM item_extra JOIN item_store USING (item_id)"
                     " WHERE sync_id = 1"),
              1);
    EXPECT_EQ(text("SELECT group_concat(name) FROM album"), "New album");
    EXPECT_EQ(
        text("SELECT origin FROM entity_revision WHERE revision = " + std::to_string(before + 1)),
        "host-1");
}

TEST_F(HostDataImport, AnotherFileIsToComeAgain) {
    HostData data;
    data.add(1, "One").set_content_hash(std::string(16, 'a'));
    imports(data);
    execute("UPDATE item SET base_location_id = 203");
    execute("UPDATE item_extra SET location_file_name = '1.mp3'");
    data.tracks[0].set_title("Renamed");
    imports(data);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 203);
    data.tracks[0].set_content_hash(std::string(16, 'b'));
    imports(data);
    EXPECT_EQ(number("SELECT base_location_id FROM item"), 0);
    EXPECT_EQ(text("SELECT location_file_name FROM item_extra"), "");
}

TEST_F(HostDataImport, ADeletionRecordRemovesAndIsToldToOthers) {
    HostData data;
    data.add(1, "One").set_album("Gone");
    data.add(2, "Two");
    data.addPlaylist(501, "List", {1});
    imports(data);
    const std::int64_t pid = pidOf(1);
    HostData removal;
    removal.remove(1);
    removal.remove(501, qorx::Deletion::PLAYLIST);
    imports(removal);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM container"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM album"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted = 1 AND pid = " +
                     std::to_string(pid)),
              1);
    EXPECT_EQ(text("SELECT group_concat(DISTINCT origin) FROM entity_revision WHERE deleted = 1"),
              "host-1");
    EXPECT_EQ(number("SELECT count(*) FROM change_state WHERE origin = '' AND exports_deletions=0"),
              1);
}

TEST_F(HostDataImport, OrdinaryDataRemoveNothingThatTheyDoNotName) {
    HostData data;
    data.add(1, "One");
    data.add(2, "Two");
    imports(data);
    HostData other;
    other.add(3, "Three");
    imports(other);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 3);
}

TEST_F(HostDataImport, AResetTakesTheClaimOffWhatIsNotNamed) {
    HostData data;
    data.add(1, "One");
    data.add(2, "Two");
    data.add(3, "Three");
    data.addPlaylist(501, "List", {1});
    data.addPlaylist(502, "Gone", {1});
    imports(data);
    add({.pid = 4000, .title = "Owner's own", .sources = 1});
    execute("UPDATE item SET sources = sources | 4 WHERE item_id = 2");  // change sync as well
    HostData reset;
    reset.add(3, "Three");
    reset.addPlaylist(501, "List", {3});
    imports(reset, true);
    EXPECT_EQ(text("SELECT group_concat(title) FROM (SELECT title FROM item_extra ORDER BY title)"),
              "Owner's own,Three,Two");
    EXPECT_EQ(number("SELECT sources FROM item WHERE item_id = 2"), 4);
    EXPECT_EQ(text("SELECT group_concat(name) FROM container"), "List");
    // A lost claim is nobody's deletion.
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted = 1"), 0);
}

TEST_F(HostDataImport, CompleteDataCountAsAResetDoes) {
    HostData data;
    data.add(1, "One");
    data.add(2, "Two");
    imports(data);
    HostData complete;
    complete.header.set_complete(true);
    complete.add(2, "Two");
    imports(complete);
    EXPECT_EQ(text("SELECT group_concat(title) FROM item_extra"), "Two");
}

TEST_F(HostDataImport, AWholeStreamOrNothing) {
    HostData good;
    good.add(1, "One");
    imports(good);
    HostData data;
    for (int i = 1; i < 20; ++i) {
        data.add(i, "Changed " + std::to_string(i));
    }
    data.addPlaylist(501, "List", {1, 2});
    const std::string bytes = data.bytes();
    const std::string before = dump();
    for (std::size_t size = 0; size < bytes.size(); size += 37) {
        const ImportResult result = importBytes(bytes.substr(0, size));
        ASSERT_EQ(result.calls, 1);
        ASSERT_FALSE(result.success);
        ASSERT_EQ(result.error->code, KVMediaLibraryServiceErrorDamagedData) << size;
    }
    EXPECT_EQ(dump(), before);
}

TEST_F(HostDataImport, AStreamThatIsNoHostDataIsRefused) {
    HostData data;
    data.add(1, "One");
    data.header.set_purpose(qorx::Header::CHANGES);
    EXPECT_EQ(import(data).error->code, KVMediaLibraryServiceErrorDamagedData);
    data.header.set_purpose(qorx::Header::HOST_DATA);
    data.header.clear_exporter_uid();
    EXPECT_EQ(import(data).error->code, KVMediaLibraryServiceErrorDamagedData);
    data.header.set_exporter_uid("host");
    data.tracks[0].set_sync_id(0);
    EXPECT_EQ(import(data).error->code, KVMediaLibraryServiceErrorDamagedData);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
}

TEST_F(HostDataImport, NamesWithoutTracksGo) {
    HostData data;
    qorx::Track& track = data.add(1, "One");
    track.set_album("A");
    track.set_album_artist("B");
    track.set_artist("C");
    imports(data);
    HostData empty;
    imports(empty, true);
    EXPECT_EQ(number("SELECT (SELECT count(*) FROM album) + (SELECT count(*) FROM album_artist) +"
                     " (SELECT count(*) FROM item_artist)"),
              0);
}

}  // namespace
