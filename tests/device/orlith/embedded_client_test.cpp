// The plug-in on the embedded device, with a real database and real files, asked directly what the
// daemon asks it outside of a sync.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

#include "common/sqlite/database.h"
#include "device/korvane/account_cache.h"
#include "device/korvane/artwork_store.h"
#include "device/korvane/library.h"
#include "device/korvane/track.h"
#include "device/orlith/bundle.h"
#include "device/orlith/embedded_platform.h"
#include "device/system/log_service.h"
#include "tests/support/temporary_directory.h"

namespace orlith::testing {
namespace {

using platform::Dictionary;
using platform::Value;
using ::testing::ElementsAre;

const std::string media = "/var/mobile/Media/";

class EmbeddedClient : public ::testing::Test {
protected:
    EmbeddedClient() {
        platform::OptionalError error;
        platform = EmbeddedPlatform::open(area / "device", log, notices, error);
        EXPECT_TRUE(platform) << (error ? error->description() : "");
        error = openBundle(KV_MODULE_PATH, *platform, clients);
        EXPECT_FALSE(error) << (error ? error->description() : "");
        client = clients.client.get();
    }
    ~EmbeddedClient() override {
        clients = {};
        if (!platform->shutDown())
            std::abort();
        platform::Platform::install(nullptr);
    }

    korvane::Library& library() { return platform->library(); }
    device::RootedFileSystem& files() { return platform->operatingSystem().fileSystem(); }
    void execute(const std::string& sql) {
        library().connections().write([&](common::Database& database) {
            database.execute(sql);
            return true;
        });
    }
    std::int64_t number(const std::string& sql) {
        return library().connections().reading<std::int64_t>(
            [&](common::Database& database) { return database.int64(sql); });
    }
    void writeFile(const std::string& path, std::size_t bytes = 1000) {
        files().createDirectory(path.substr(0, path.rfind('/')));
        std::ofstream(files().realPath(path)) << std::string(bytes, 'x');
    }
    struct NewTrack {
        std::int64_t pid = 0;
        std::int64_t mediaType = 8;
        std::string path = {};  // below the media directory
        std::int64_t item = 0;
        std::int64_t account = 0;
        bool isTemporary = false;
    };
    void add(const NewTrack& track) {
        const std::string pid = std::to_string(track.pid);
        execute("INSERT INTO item (item_pid, media_type, sources) VALUES (" + pid + ", " +
                std::to_string(track.mediaType) + ", 64)");
        const std::string id = "(SELECT item_id FROM item WHERE item_pid = " + pid + "), " + pid;
        execute("INSERT INTO item_extra (item_id, item_pid, title, global_id) VALUES (" + id +
                ", 'Track " + pid + "', " + std::to_string(1000 + track.pid) + ")");
        execute(
            "INSERT INTO item_store (item_id, item_pid, sync_id, account_id, store_item_id, "
            "is_temporary_cloud_download) VALUES (" +
            id + ", " + std::to_string(100 + track.pid) + ", nullif(" +
            std::to_string(track.account) + ", 0), nullif(" + std::to_string(track.item) +
            ", 0), " + (track.isTemporary ? "1" : "0") + ")");
        execute("INSERT INTO item_stats (item_id, item_pid) VALUES (" + id + ")");
        execute("INSERT INTO item_artwork (item_id, item_pid, sync_artwork_token) VALUES (" + id +
                ", 'cover " + pid + "')");
        if (track.path.empty())
            return;
        writeFile(media + track.path);
        ASSERT_TRUE(handle(track.pid).populateLocationPropertiesWithPath(media + track.path));
    }
    korvane::Track handle(std::int64_t pid) { return {pid, library().shared_from_this()}; }
    std::vector<std::int64_t> tracks() {
        return library().connections().reading<std::vector<std::int64_t>>(
            [](common::Database& database) {
                std::vector<std::int64_t> pids;
                auto rows = database.query("SELECT item_pid FROM item ORDER BY item_pid");
                while (rows.step())
                    pids.push_back(rows->int64(0));
                return pids;
            });
    }

    test::TemporaryDirectory area;
    device::LogService log{platform::LogLevel::Warning};
    Notices notices;
    std::unique_ptr<EmbeddedPlatform> platform;
    ORBundleClients clients;
    ORClient* client = nullptr;
};

TEST_F(EmbeddedClient, ARestoreKeepsWhatCanBeFetchedAgainWithAllThatItsOwnerGaveIt) {
    add({.pid = 1, .path = "Purchases/1.m4a", .item = 500, .account = 77});
    add({.pid = 2, .path = "Tessel_Control/Music/F00/2.mp3"});
    add({.pid = 3, .mediaType = 4});
    add({.pid = 4, .mediaType = 0x20});
    add({.pid = 5, .path = "Tessel_Control/Music/F00/5.mp3", .item = 501, .account = 77});
    EXPECT_TRUE(handle(1).setValue(80, KV3TrackPropertyUserRating));
    EXPECT_TRUE(handle(2).setValue(60, KV3TrackPropertyUserRating));
    execute("INSERT INTO play_statistics (item_pid, origin_uid, play_count) VALUES (1, 'o', 7)");
    execute("INSERT INTO container (container_id, container_pid) VALUES (900, 900)");
    execute(
        "INSERT INTO container_item (container_id, position, item_pid) VALUES (900, 1, 2), "
        "(900, 2, 1)");
    library().setValueForDatabaseProperty("4", "KVSyncClientSyncAnchor");
    library().setValueForDatabaseProperty(9, "KVSyncClientLastSyncedRevision");

    // As a backup without its files comes back.
    files().removeItem(media + "Purchases/1.m4a");

    platform::OptionalError error;
    EXPECT_TRUE(client->reconcileRestore(&error));
    EXPECT_EQ(error, std::nullopt);

    EXPECT_THAT(tracks(), ElementsAre(1, 3, 4));
    const KV3TrackProperty properties[] = {
        KV3TrackPropertyNeedsRestore, KV3TrackPropertyBaseLocationID,   KV3TrackPropertyFilePath,
        KV3TrackPropertySyncID,       KV3TrackPropertySyncArtworkToken, KV3TrackPropertyStoreItemID,
        KV3TrackPropertyUserRating,   KV3TrackPropertyPlayCountUser};
    EXPECT_EQ(handle(1).getValues(properties),
              (std::vector<Value>{1, 0, Value(), 0, Value(), 500, 80, 7}));
    EXPECT_EQ(client->currentSyncAnchor(), "0");
    EXPECT_TRUE(library().valueForDatabaseProperty("KVSyncClientLastSyncedRevision").isNull());
    // What is gone is told to nobody, and remembered: rating and place come back with the track.
    EXPECT_EQ(number("SELECT count(*) FROM entity_revision WHERE deleted <> 0"), 0);
    EXPECT_EQ(number("SELECT user_rating FROM removed_memory WHERE item_pid = 2"), 60);
    EXPECT_EQ(number("SELECT count(*) FROM container_item WHERE container_id = 900"), 2);
    EXPECT_EQ(number("SELECT item_pid FROM container_item WHERE position = 2"), 1);
    // A second time nothing is left to do.
    EXPECT_TRUE(client->reconcileRestore(nullptr));
    EXPECT_THAT(tracks(), ElementsAre(1, 3, 4));
}

TEST_F(EmbeddedClient, ARestoreClearsTheTokensOfAlbumsAndArtistsAndRemovesTheirPictures) {
    add({.pid = 1, .path = "Purchases/1.m4a", .item = 500, .account = 77});
    execute(
        "INSERT INTO album (album_pid, name, representative_item_pid, "
        "representative_item_artwork_token) VALUES (50, 'A', 1, 'cover 1')");
    execute(
        "INSERT INTO album_artist (album_artist_pid, name, representative_item_pid, "
        "representative_item_artwork_token, artist_artwork_token) VALUES (51, 'B', 1, "
        "'cover 1', 'face')");
    execute(
        "INSERT INTO item_artist (item_artist_pid, name, artist_artwork_token) VALUES (52, "
        "'C', 'face')");
    execute("UPDATE item SET album_pid = 50, album_artist_pid = 51, item_artist_pid = 52");
    const std::string picture =
        korvane::ArtworkStore::originalPath(korvane::artworkRelativePath("cover 1"));
    writeFile(picture);
    ASSERT_TRUE(library().importExistingOriginalArtworkWithArtworkToken("cover 1", 1, 2, 8));
    EXPECT_TRUE(client->reconcileRestore(nullptr));
    EXPECT_EQ(number("SELECT count(*) FROM album WHERE representative_item_artwork_token = ''"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM album_artist WHERE representative_item_artwork_token = "
                     "'' AND artist_artwork_token = ''"),
              1);
    EXPECT_EQ(number("SELECT count(*) FROM item_artist WHERE artist_artwork_token = ''"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM artwork"), 0);
    EXPECT_FALSE(files().fileExists(picture));
}

TEST_F(EmbeddedClient, ALibraryWithoutRestorableTracksIsEmptyAfterwards) {
    add({.pid = 1});
    EXPECT_TRUE(client->reconcileRestore(nullptr));
    EXPECT_THAT(tracks(), ElementsAre());
    EXPECT_TRUE(client->reconcileRestore(nullptr));
}

TEST_F(EmbeddedClient, MetricsAreThoseOfTheFilesOnDisk) {
    EXPECT_EQ(client->installedAssetMetrics(), Dictionary{});
    add({.pid = 1, .path = "Tessel_Control/Music/F00/1.mp3"});
    add({.pid = 2, .path = "Purchases/2.m4a", .isTemporary = true});
    add({.pid = 3, .mediaType = 4, .path = "Podcasts/3.mp3"});
    add({.pid = 4});
    writeFile(media + "Tessel_Control/Artwork/Originals/a", 50'000);
    ::sync();
    const Dictionary metrics = client->installedAssetMetrics();
    const std::uint64_t file = platform->syncDaemon().physicalSizeForLogicalSize(1000);
    EXPECT_EQ(metrics.size(), 2u);
    EXPECT_EQ(Value(metrics)["Podcast"], Value(Dictionary{{"_PhysicalSize", file}, {"_Count", 1}}));
    const Value music = Value(metrics)["Music"];
    EXPECT_EQ(music["_Count"], Value(1));
    EXPECT_EQ(music["_PurgeableSize"], Value(file));
    // The library itself grows as it is used.
    EXPECT_GT(music["_PhysicalSize"].unsignedValue(), 2 * file + 50'000);
}

TEST_F(EmbeddedClient, AccountsAreNamedAsTheCacheKnowsThem) {
    EXPECT_TRUE(client->vantorIDsForAssets().empty());
    add({.pid = 1, .item = 500, .account = 77});
    add({.pid = 2, .item = 501, .account = 77});
    add({.pid = 3, .item = 502, .account = 78});
    EXPECT_TRUE(client->vantorIDsForAssets().empty());
    EXPECT_EQ(library().accounts().add({77, "me@example.org"}), std::nullopt);
    EXPECT_EQ(client->vantorIDsForAssets(), std::set<std::string>{"me@example.org"});
}

TEST_F(EmbeddedClient, DisabledTypesFollowTheCloudsSignIn) {
    EXPECT_EQ(client->disabledAssetTypes(), std::nullopt);
    EXPECT_EQ(platform->cloud().signIn(false), std::nullopt);
    EXPECT_EQ(client->disabledAssetTypes(), (std::set<std::string>{"Music", "MusicVideo"}));
    EXPECT_EQ(platform->cloud().signOut(), std::nullopt);
    EXPECT_EQ(client->disabledAssetTypes(), std::nullopt);
}

TEST_F(EmbeddedClient, ClearingForgetsTheAnchor) {
    client->clearSyncData();
    library().setValueForDatabaseProperty("4", "KVSyncClientSyncAnchor");
    library().setValueForDatabaseProperty(9, "KVSyncClientLastSyncedRevision");
    client->clearSyncData();
    EXPECT_EQ(client->currentSyncAnchor(), "0");
    EXPECT_EQ(library().valueForDatabaseProperty("KVSyncClientLastSyncedRevision"), Value(9));
}

TEST_F(EmbeddedClient, AMetadataUpdateIsThereWhenTheCallReturns) {
    add({.pid = 1});
    const auto update = [&](Dictionary fields, const std::string& anchor) {
        client->metadataUpdate({{"sync_id", 101}, {"fields", std::move(fields)}},
                               platform->syncDaemon().makeDownloadAsset("101", "Media", ""),
                               anchor);
    };
    update({{"title", "Anew"}, {"rating", 80}}, "5");
    EXPECT_EQ(handle(1).valueForProperty(KV3TrackPropertyTitle), Value("Anew"));
    EXPECT_EQ(handle(1).valueForProperty(KV3TrackPropertyUserRating), Value(80));
    EXPECT_EQ(client->currentSyncAnchor(), "5");
    update({{"title", "x"}, {"colour", "red"}}, "6");
    update({{"title", Value()}}, "7");
    EXPECT_EQ(handle(1).valueForProperty(KV3TrackPropertyTitle), Value("Anew"));
    EXPECT_EQ(client->currentSyncAnchor(), "5");
}

TEST_F(EmbeddedClient, BackupPathsAreThoseOfTheManifest) {
    std::vector<std::string> paths{"from before"}, others{"left alone"};
    client->pathsToBackup(&paths, &others);
    EXPECT_THAT(paths, ElementsAre());
    EXPECT_THAT(others, ElementsAre("left alone"));
}

}  // namespace
}  // namespace orlith::testing
