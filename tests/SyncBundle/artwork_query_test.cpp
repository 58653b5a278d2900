// The statement that finds missing artwork, as the engine understands it.
#include "common/sqlite/database.h"
#include "tests/SyncBundle/sync_client_test.h"
#include "tests/support/temporary_directory.h"

namespace sync_bundle_tests {
namespace {

class ArtworkQuery : public SyncClientTest {
protected:
    ArtworkQuery() {
        _database.executeScript(
            "CREATE TABLE item (item_pid INTEGER PRIMARY KEY, media_type INTEGER);"
            "CREATE TABLE item_store (item_pid INTEGER PRIMARY KEY, sync_id INTEGER);"
            "CREATE TABLE item_extra (item_pid INTEGER PRIMARY KEY, title TEXT);"
            "CREATE TABLE item_artwork (item_pid INTEGER PRIMARY KEY, cloud_artwork_token TEXT,"
            " best_artwork_token TEXT);"
            "CREATE TABLE artwork (artwork_token TEXT);");
    }
    void addItem(std::int64_t id, std::string_view cloudToken, std::string_view bestToken) {
        _database.execute("INSERT INTO item VALUES (?, 8)", id);
        _database.execute("INSERT INTO item_store VALUES (?, ?)", id, 10 + id);
        _database.execute("INSERT INTO item_extra VALUES (?, 'Title')", id);
        _database.execute("INSERT INTO item_artwork VALUES (?, ?, ?)", id, cloudToken, bestToken);
    }
    // Runs the client's statement on the tables and gives its rows to the client.
    std::vector<std::string> gather() {
        client().assetsToSyncWithCompletion([](const auto&, const auto&) {});
        const std::string sql = *recorder()
                                     .callsNamed({"KV3DatabaseConnection.executeQuery"})
                                     .at(0)
                                     .arguments.at(0)
                                     .string();
        common::Query query = _database.query(sql);
        while (query.step())
            library().queryRows[sql].push_back(
                {query->value(0), query->value(1), query->value(2), query->value(3)});
        std::vector<std::string> identifiers;
        client().assetsToSyncWithCompletion([&](const auto&, const auto& assets) {
            for (const auto& asset : assets)
                identifiers.push_back(asset->identifier());
        });
        return identifiers;
    }

    test::TemporaryDirectory _directory;
    common::Database _database{_directory / "library.db", {}};
};

TEST_F(ArtworkQuery, TwoItemsThatShareACloudTokenAreOneAsset) {
    addItem(1, "shared", "shared");
    addItem(2, "shared", "shared");
    addItem(3, "own", "own");
    EXPECT_THAT(gather(), ElementsAre("13", testing::AnyOf("11", "12")));
}

TEST_F(ArtworkQuery, ArtworkThatIsHereOrNotTheBestIsNotAskedFor) {
    addItem(1, "here", "here");
    _database.execute("INSERT INTO artwork VALUES ('here')");
    addItem(2, "cloud", "better");
    addItem(3, "", "");
    addItem(4, "missing", "missing");
    EXPECT_THAT(gather(), ElementsAre("14"));
}

}  // namespace
}  // namespace sync_bundle_tests
