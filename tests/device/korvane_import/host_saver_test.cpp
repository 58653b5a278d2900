// What is saved for the host: the owner's changes, whole files, and how far they go.
#include <gmock/gmock.h>

#include "common/qorx/reader.h"
#include "device/korvane/track_deletion.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace {

using namespace test;
using testing::ElementsAre;

class HostSaver : public ImportTest {
protected:
    struct Saved {
        qorx::Header header;
        std::vector<qorx::Track> tracks;
        std::vector<qorx::Playlist> playlists;
        std::vector<qorx::Deletion> deletions;
    };
    Saved read(const std::string& path) {
        Saved saved;
        const auto bytes = files.readFile(path, 1u << 30, nullptr);
        if (!bytes) {
            ADD_FAILURE() << "no " << path;
            return saved;
        }
        common::QorxReader reader(*bytes);
        google::protobuf::Arena arena;
        while (const qorx::Record* record = reader.next(arena)) {
            if (record->has_track()) {
                saved.tracks.push_back(record->track());
            } else if (record->has_playlist()) {
                saved.playlists.push_back(record->playlist());
            } else {
                saved.deletions.push_back(record->deletion());
            }
        }
        EXPECT_FALSE(reader.error()) << reader.error()->description();
        saved.header = *reader.header();
        return saved;
    }
    Saved tracks(std::uint32_t torvelID = 7) { return read(korvane::savedTracksPath(torvelID)); }
    Saved playlists(std::uint32_t torvelID = 7) {
        return read(korvane::savedPlaylistsPath(torvelID));
    }
    std::vector<std::string> savedFiles() {
        auto names = files.contentsOfDirectory(korvane::SavedDirectory, nullptr)
                         .value_or(std::vector<std::string>());
        std::ranges::sort(names);
        return names;
    }
};

TEST_F(HostSaver, ThePathsAreThoseThatTheHostReads) {
    EXPECT_EQ(korvane::savedTracksPath(4'000'000'000),
              "/var/mobile/Media/Tessel_Control/Sync/Saved/Tracks_4000000000.qorx");
    EXPECT_EQ(korvane::savedPlaylistsPath(5),
              "/var/mobile/Media/Tessel_Control/Sync/Saved/Playlists_5.qorx");
}

TEST_F(HostSaver, SavesTheOwnersChangesOnly) {
    HostData data;
    data.add(1, "Rated").set_artist("Artist");
    data.add(2, "Left alone");
    imports(data);
    const std::int64_t afterImport = revision();
    execute(
        "UPDATE item_stats SET user_rating = 60, rating_changed_ms = 5, bookmark_ms = 9,"
        " bookmark_changed_ms = 4 WHERE item_id = 1");
    execute(
        "INSERT INTO play_statistics (item_pid, origin_uid, play_count, skip_count,"
        " last_played_ms) SELECT item_pid, 'me', 2, 1, 3 FROM item WHERE item_id = 1");
    save(0);
    const Saved saved = tracks();
    EXPECT_EQ(saved.header.purpose(), qorx::Header::SAVED_METADATA);
    EXPECT_EQ(saved.header.exporter_uid(), library->uid());
    EXPECT_EQ(saved.header.covered_revision(), revision());
    ASSERT_EQ(saved.tracks.size(), 1u);
    const qorx::Track& track = saved.tracks[0];
    EXPECT_EQ(track.sync_id(), 1);
    EXPECT_EQ(track.persistent_id(), pidOf(1));
    EXPECT_EQ(track.global_id(), 100'001);
    EXPECT_EQ(track.title(), "Rated");
    EXPECT_EQ(track.artist(), "Artist");
    EXPECT_EQ(track.rating().value(), 60u);
    EXPECT_EQ(track.rating().changed_ms(), 5);
    EXPECT_EQ(track.bookmark().position_ms(), 9u);
    ASSERT_EQ(track.plays_size(), 1);
    EXPECT_EQ(track.plays(0).origin_uid(), "me");
    EXPECT_EQ(track.plays(0).play_count(), 2u);
    EXPECT_EQ(track.plays(0).skip_count(), 1u);
    // Since then nothing.
    save(revision());
    EXPECT_TRUE(tracks().tracks.empty());
    EXPECT_GT(revision(), afterImport);
}

TEST_F(HostSaver, SavesTheOwnersDeletions) {
    HostData data;
    data.add(1, "One");
    data.addPlaylist(501, "List", {1});
    imports(data);
    const std::int64_t pid = pidOf(1);
    const std::int64_t before = revision();
    ASSERT_TRUE(library->connections().write([&](common::Database& database) {
        return korvane::deleteTrack(database, pid, korvane::DeletionReach::everywhere(1)) &&
               korvane::deletePlaylist(database,
                                       database.int64("SELECT container_pid FROM container"),
                                       korvane::DeletionReach::everywhere(1));
    }));
    save(before);
    ASSERT_EQ(tracks().deletions.size(), 1u);
    EXPECT_EQ(tracks().deletions[0].sync_id(), 1);
    EXPECT_EQ(tracks().deletions[0].global_id(), 100'001);
    EXPECT_EQ(tracks().deletions[0].persistent_id(), pid);
    ASSERT_EQ(playlists().deletions.size(), 1u);
    EXPECT_EQ(playlists().deletions[0].entity(), qorx::Deletion::PLAYLIST);
    EXPECT_EQ(playlists().deletions[0].sync_id(), 501);
}

TEST_F(HostSaver, APlaylistThatNoHostHasNamedIsSavedAgain) {
    HostData data;
    data.add(1, "One");
    imports(data);
    execute("INSERT INTO container (container_pid, name, sources) VALUES (900, 'Mine', 1)");
    execute("INSERT INTO container (container_pid, name, auto_created) VALUES (901, 'Own', 1)");
    execute("INSERT INTO container_item (container_id, position, item_pid) VALUES (1, 0, " +
            std::to_string(pidOf(1)) + "), (1, 5, 0)");
    save(revision());
    ASSERT_EQ(playlists().playlists.size(), 1u);
    const qorx::Playlist playlist = playlists().playlists[0];
    EXPECT_EQ(playlist.name(), "Mine");
    ASSERT_EQ(playlist.items_size(), 2);
    EXPECT_EQ(playlist.items(0).sync_id(), 1);
    data.addPlaylist(501, "Mine", {1}).set_own_id(900);
    imports(data);
    save(revision());
    EXPECT_TRUE(playlists().playlists.empty());
}

TEST_F(HostSaver, WritesNoRowAndLeavesNoOtherFile) {
    HostData data;
    data.add(1, "One");
    imports(data);
    const std::int64_t rows = changedRows();
    save(1, 3);
    save(1, 4);
    EXPECT_EQ(changedRows(), rows);
    EXPECT_THAT(savedFiles(), ElementsAre("Playlists_4.qorx", "Tracks_4.qorx"));
    save(0, 5);
    EXPECT_THAT(savedFiles(), ElementsAre("Tracks_5.qorx"));
}

TEST_F(HostSaver, HowFarASaveWentIsKnownAfterARestart) {
    HostData data;
    data.add(1, "One");
    imports(data);
    save(0);
    const std::int64_t covered = revision();
    service.reset();
    library.reset();
    open();
    library->setSaver(&saver);
    service = std::make_unique<korvane::ImportService>(library);
    data.add(2, "Two");
    imports(data);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), covered);
}

TEST_F(HostSaver, ASaveOfAnotherLibraryDoesNotCount) {
    save(0);
    EXPECT_EQ(korvane::savedRevision(files, library->uid()), revision());
    EXPECT_EQ(korvane::savedRevision(files, "another"), std::nullopt);
}

TEST_F(HostSaver, ASaveThatFailsDoesNotCount) {
    HostData data;
    data.add(1, "One");
    imports(data);
    // A file where the directory should be.
    files.createDirectory("/var/mobile/Media/Tessel_Control/Sync");
    files.removeItem("/var/mobile/Media/Tessel_Control/Sync/Saved");
    writeFile("/var/mobile/Media/Tessel_Control/Sync/Saved", "in the way");
    save(0);
    EXPECT_EQ(korvane::savedRevision(files, library->uid()), std::nullopt);
    EXPECT_THAT(log.messages(), testing::Contains(testing::HasSubstr("could not save")));
}

TEST_F(HostSaver, ASaveWithoutItsPlaylistsDoesNotCount) {
    HostData data;
    data.add(1, "One");
    imports(data);
    library->performReadOnlyDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        library->saveTrackMetadataSinceRevision(1, 7);
        files.createDirectory(korvane::savedPlaylistsPath(7));
        library->savePlaylistsSinceRevision(1, 7);
        return true;
    });
    EXPECT_EQ(korvane::savedRevision(files, library->uid()), std::nullopt);
}

TEST_F(HostSaver, TextThatIsNoUTF8IsMadeSafe) {
    add({.pid = 4000, .syncID = 1, .title = "a\xff\xfe-\xc3"});
    save(0);
    ASSERT_EQ(tracks().tracks.size(), 1u);
    EXPECT_EQ(tracks().tracks[0].title(), "a\uFFFD\uFFFD-\uFFFD");
}

}  // namespace
