// Data that mean harm, or meet a full disk: an answer each time, and a library that is whole.
#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>

#include <random>

#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;

class HostileImport : public ImportTest {};

TEST_F(HostileImport, ExtremeNumbersAreTaken) {
    HostData data;
    qorx::Track& track = data.add(INT64_MIN, "Extreme");
    track.set_global_id(INT64_MIN);
    track.set_own_id(INT64_MIN);
    track.set_persistent_id(INT64_MAX);
    track.set_media_type(UINT32_MAX);
    track.set_total_time_ms(UINT64_MAX);
    track.set_total_size(UINT64_MAX);
    track.set_date_added(INT64_MIN);
    track.set_release_date(INT64_MAX);
    track.mutable_rating()->set_value(UINT32_MAX);
    track.mutable_rating()->set_changed_ms(INT64_MAX);
    track.mutable_bookmark()->set_position_ms(UINT64_MAX);
    for (int i = 0; i < 50; ++i) {
        qorx::PlayStatistics& plays = *track.add_plays();
        plays.set_origin_uid(i % 2 == 0 ? "o" + std::to_string(i) : std::string(1000, 'o'));
        plays.set_play_count(UINT64_MAX);
        plays.set_skip_count(UINT64_MAX);
        plays.set_last_played_ms(INT64_MIN);
    }
    qorx::Playlist& playlist = data.addPlaylist(INT64_MAX, "List", {INT64_MIN, 0, INT64_MAX});
    playlist.set_built_in_kind(UINT32_MAX);
    playlist.set_changed_ms(INT64_MIN);
    data.remove(INT64_MAX);
    data.remove(0);
    imports(data);
    const std::int64_t rows = changedRows();
    imports(data);
    EXPECT_EQ(changedRows(), rows);
    EXPECT_EQ(number("SELECT count(*) FROM play_statistics"), 25);
    EXPECT_GT(number("SELECT play_count FROM item_stats"), 0);
}

TEST_F(HostileImport, ManyTracksOfOneGlobalIDTakeNoMoreTimeThanOthers) {
    add({.pid = 1, .title = "Makes the library not empty"});
    HostData data;
    for (int i = 1; i <= 3000; ++i) {
        data.add(i, "t").set_global_id(9);
    }
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 3001);
}

TEST_F(HostileImport, TextIsDataWhateverItHolds) {
    HostData data;
    const std::string nasty = std::string("'; DROP TABLE item; --\0\x01\xe2\x80\xae", 27);
    qorx::Track& track = data.add(1, nasty);
    track.set_album(nasty);
    track.set_artist(std::string(100'000, 'x'));
    track.set_artwork_token("../../../etc/passwd");
    track.set_file_extension("mp3/../../x");
    data.addPlaylist(501, nasty, {1});
    imports(data);
    const std::int64_t rows = changedRows();
    imports(data);
    EXPECT_EQ(changedRows(), rows);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1);
    EXPECT_EQ(text("SELECT file_extension FROM item_extra"), "");
}

TEST_F(HostileImport, AStringBeyondTheRecordsLimitIsRefused) {
    const google::protobuf::LogSilencer silence;
    HostData data;
    data.add(1, "One");
    std::string bytes = data.bytes();
    // A length of a hundred megabytes where the track's record begins.
    const std::size_t at = bytes.find("One");
    bytes.insert(at, std::string("\xff\xff\xff\x7f", 4));
    EXPECT_EQ(importBytes(bytes).error->code, KVMediaLibraryServiceErrorDamagedData);
}

TEST_F(HostileImport, RandomDamageNeverChangesTheLibrary) {
    const google::protobuf::LogSilencer silence;
    HostData good;
    good.add(1, "One");
    imports(good);
    HostData data;
    for (int i = 1; i < 10; ++i) {
        data.add(i, "Changed").set_album("Album");
    }
    data.addPlaylist(501, "List", {1, 2});
    const std::string bytes = data.bytes();
    const std::string before = dump();
    std::mt19937 random(20'261'121);
    for (int round = 0; round < 300; ++round) {
        std::string damaged = bytes;
        damaged[random() % damaged.size()] ^= static_cast<char>(1 + random() % 255);
        const ImportResult result = importBytes(damaged);
        ASSERT_EQ(result.calls, 1);
        ASSERT_FALSE(result.success);
        ASSERT_EQ(result.error->code, KVMediaLibraryServiceErrorDamagedData);
    }
    EXPECT_EQ(dump(), before);
}

TEST_F(HostileImport, AFullDiskLeavesTheLibraryAsItWas) {
    HostData small;
    small.add(1, "One");
    imports(small);
    const std::string before = dump();
    HostData data;
    for (int i = 1; i < 2000; ++i) {
        data.add(i, std::string(500, 't'));
    }
    std::int64_t pages = 0;
    library->connections().use(true, [&](common::Database& database) {
        pages = database.int64("PRAGMA page_count");
        database.int64("PRAGMA max_page_count = " + std::to_string(pages + 20));
    });
    const ImportResult result = import(data);
    ASSERT_TRUE(result.error);
    EXPECT_EQ(result.error->domain, KVMediaLibraryServiceErrorDomain);
    EXPECT_EQ(result.error->code, KVMediaLibraryServiceErrorNoSpace);
    EXPECT_EQ(dump(), before);
    library->connections().use(true, [&](common::Database& database) {
        database.int64("PRAGMA max_page_count = 1000000");
    });
    imports(data);
    EXPECT_EQ(number("SELECT count(*) FROM item"), 1999);
}

}  // namespace
