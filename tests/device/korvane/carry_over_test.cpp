#include "device/korvane/check/carry_over.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/check/schema_pages.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/schema.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

namespace fs = std::filesystem;
using namespace korvane;

constexpr std::int64_t TrackCount = 150;
constexpr std::int64_t PageSize = 4096;

// A library of many pages that a test damages.
class CarriedLibrary : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        for (std::int64_t pid = 1; pid <= TrackCount; ++pid)
            add({.pid = pid,
                 .syncID = 10'000 + pid,
                 .title = "Track number " + std::to_string(pid),
                 .artist = "Artist " + std::to_string(pid % 7),
                 .album = "Album " + std::to_string(pid % 20),
                 .globalID = 20'000 + pid});
        for (std::int64_t pid = 1; pid <= TrackCount; ++pid) {
            EXPECT_FALSE(rateTrack(*library, pid, 1 + static_cast<std::uint32_t>(pid % 5)));
            EXPECT_FALSE(recordPlay(*library, pid));
        }
        for (const char* name : {"One", "Two", "Three"})
            createPlaylist(*library, name, error, {3, 1, 2});
        ASSERT_FALSE(error);
        original = files.realPath(library->configuration().databasePath);
        library.reset();
        {
            // What lies in the log goes into the file.
            common::Database database(original, {});
            database.executeScript("PRAGMA wal_checkpoint(TRUNCATE)");
        }
        pages = static_cast<std::int64_t>(fs::file_size(original)) / PageSize;
        ASSERT_GT(pages, 60);
    }

    std::string damagedAt(std::int64_t page) {
        const std::string path = directory.path() + "/damaged";
        removeDatabaseFiles(path);
        fs::copy_file(original, path);
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        std::mt19937 noise(static_cast<unsigned>(page));
        file.seekp((page - 1) * PageSize);
        for (int i = 0; i < PageSize; ++i)
            file.put(static_cast<char>(noise()));
        return path;
    }

    std::unique_ptr<common::Database> newDatabase() {
        const std::string path = directory.path() + "/sound";
        removeDatabaseFiles(path);
        auto database = std::make_unique<common::Database>(path, common::DatabaseOptions{});
        bringSchemaUpToDate(*database);
        return database;
    }

    CarriedOver carry(const std::string& path, common::Database& sound) {
        common::DatabaseOptions options;
        options.readOnly = true;
        common::Database damaged(path, options);
        common::Transaction transaction(sound, common::TransactionKind::Write);
        const CarriedOver result = carryOver(damaged, sound, 1'700'000'000'000);
        transaction.commit();
        return result;
    }

    CarriedOver carryWhatIsReadable(const std::string& path, common::Database& sound) {
        try {
            common::DatabaseOptions options;
            options.readOnly = true;
            common::Database(path, options).int64("SELECT count(*) FROM sqlite_master");
            return carry(path, sound);
        } catch (const common::SqliteError& error) {
            EXPECT_TRUE(error.isDamage()) << error.what();
        }
        copyWithNewSchemaPages(path, path + ".readable");
        return carry(path + ".readable", sound);
    }

    std::string original;
    std::int64_t pages = 0;
    platform::OptionalError error;
};

TEST_F(CarriedLibrary, ASoundOneComesOverWhole) {
    const auto sound = newDatabase();
    const CarriedOver result = carry(original, *sound);
    EXPECT_EQ(result.tracks, static_cast<std::size_t>(TrackCount));
    EXPECT_EQ(result.playlists, 3u);
    EXPECT_EQ(result.gaps, 0u);
    EXPECT_EQ(sound->int64("SELECT count(*) FROM item_stats WHERE user_rating = 20 * (1 + item_pid "
                           "% 5) AND play_count = 1"),
              TrackCount);
    EXPECT_EQ(sound->int64("SELECT count(*) FROM item i JOIN item_artist a USING (item_artist_pid) "
                           "JOIN album b USING (album_pid) WHERE a.name = 'Artist ' || (item_pid % "
                           "7) AND b.name = 'Album ' || (item_pid % 20)"),
              TrackCount);
    EXPECT_EQ(sound->int64("SELECT count(*) FROM container_item WHERE item_pid IN (1, 2, 3)"), 9);
    EXPECT_EQ(sound->int64("SELECT items FROM row_count"), TrackCount);
}

TEST_F(CarriedLibrary, APageOfNoiseAnywhereLosesNoTrackAndNoPlaylist) {
    for (std::int64_t page = 1; page <= pages; ++page) {
        const auto sound = newDatabase();
        const CarriedOver result = carryWhatIsReadable(damagedAt(page), *sound);
        EXPECT_EQ(result.tracks, static_cast<std::size_t>(TrackCount)) << "page " << page;
        EXPECT_GE(result.playlists, 3u) << "page " << page;
        EXPECT_EQ(
            sound->int64("SELECT count(*) FROM item_store s JOIN item_extra e USING (item_id) "
                         "WHERE s.sync_id = 10000 + e.item_pid OR e.global_id = 20000 + "
                         "e.item_pid"),
            TrackCount)
            << "page " << page;
    }
}

TEST_F(CarriedLibrary, ItIsJoinedWithWhatIsThere) {
    const auto sound = newDatabase();
    carry(original, *sound);
    sound->execute(
        "UPDATE item_stats SET user_rating = 0, rating_changed_ms = 1 WHERE item_pid = 1");
    sound->execute(
        "UPDATE item_stats SET user_rating = 100, rating_changed_ms = ?1 WHERE item_pid = 2",
        std::int64_t{1'800'000'000'000});
    sound->execute("DELETE FROM container WHERE name = 'Two'");
    const CarriedOver result = carry(original, *sound);
    EXPECT_EQ(result.tracks, 0u);
    EXPECT_EQ(result.joined, static_cast<std::size_t>(TrackCount));
    EXPECT_EQ(result.playlists, 1u);
    EXPECT_EQ(sound->int64("SELECT user_rating FROM item_stats WHERE item_pid = 1"), 40);
    EXPECT_EQ(sound->int64("SELECT user_rating FROM item_stats WHERE item_pid = 2"), 100);
    EXPECT_EQ(sound->int64("SELECT sum(play_count) FROM item_stats"), TrackCount);
}

}  // namespace
