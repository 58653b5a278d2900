#include "SyncBundle/asset_transfer/kenning_plist.h"
#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string path = "/var/mobile/Media/Stagehold/Media/kenning.plist";
const std::string operation = "_processKenningPlist:kenningIDString:kenningChecksum:";
const std::string configOperation = "_processKenningConfigPlist:";
const std::string insertMetadata =
    "INSERT OR REPLACE INTO kenning_metadata (kenning_id, checksum, data) VALUES (?, ?, ?);";
const std::string updateItems =
    "UPDATE item_extra SET pending_kenning_checksum = ? WHERE kenning_id = ?;";
const std::string insertSimilarities =
    "INSERT OR REPLACE INTO kenning_similarities (kenning_id, data) VALUES (?, ?);";
const std::string insertConfig =
    "INSERT OR REPLACE INTO kenning_config (id, data, default_num_results, min_num_results, "
    "version) VALUES (0,?,?,?,?)";

Call update(const std::string& sql, Array parameters) {
    return {"KV3DatabaseConnection.executeUpdate", {sql, std::move(parameters)}};
}

// A line under the daemon framework's category.
LogLine frameworkLine(LogLevel level, std::string message) {
    return {level, "com.vantor.Orlith", "KenningPlistFromPath", std::move(message)};
}

class KenningPlist : public SyncClientTest {};

TEST_F(KenningPlist, IsReadAndItsFileDeleted) {
    const Dictionary plist{{"kenning_metadata", Data{1}}};
    files().addFile(path, system().propertyLists().bytesFor(plist));
    EXPECT_EQ(KenningPlistFromPath(path), plist);
    EXPECT_EQ(calls(), (Calls{{"FileSystem.openInputStream", {path}},
                              {"PropertyLists.parse", {"<stream " + path + ">"}},
                              {"FileSystem.unlink", {path}}}));
    EXPECT_FALSE(files().contains(path));
    EXPECT_THAT(lines(),
                ElementsAre(frameworkLine(LogLevel::Debug, "Deleted kenning plist " + path)));
}

TEST_F(KenningPlist, WhoseRootIsAnArrayIsNoneAndItsFileDeleted) {
    files().addFile(path, system().propertyLists().bytesFor(Array{1}));
    EXPECT_EQ(KenningPlistFromPath(path), std::nullopt);
    EXPECT_FALSE(files().contains(path));
    EXPECT_THAT(lines(),
                ElementsAre(frameworkLine(LogLevel::Error,
                                          "Could not read plist stream " + path + ": (null)"),
                            frameworkLine(LogLevel::Debug, "Deleted kenning plist " + path)));
}

TEST_F(KenningPlist, ThatIsMalformedIsNoneAndItsFileDeleted) {
    files().addFile(path, Data{1, 2, 3});
    EXPECT_EQ(KenningPlistFromPath(path), std::nullopt);
    EXPECT_FALSE(files().contains(path));
    EXPECT_THAT(lines(),
                ElementsAre(frameworkLine(LogLevel::Error,
                                          "Could not read plist stream " + path +
                                              ": Error Domain=PropertyListErrorDomain Code=1 "
                                              "\"malformed\""),
                            frameworkLine(LogLevel::Debug, "Deleted kenning plist " + path)));
}

TEST_F(KenningPlist, ThatIsMissingIsNoneAndNothingIsDeleted) {
    EXPECT_EQ(KenningPlistFromPath(path), std::nullopt);
    EXPECT_EQ(calls(), (Calls{{"FileSystem.openInputStream", {path}}}));
    EXPECT_THAT(lines(), ElementsAre(frameworkLine(LogLevel::Error,
                                                   "Could not open read stream (null): " + path)));
}

TEST_F(KenningPlist, WhoseFileCannotBeOpenedStays) {
    files().addFile(path, system().propertyLists().bytesFor(Dictionary{}));
    recorder().failCall("FileSystem.openInputStream");
    EXPECT_EQ(KenningPlistFromPath(path), std::nullopt);
    EXPECT_TRUE(files().contains(path));
}

TEST_F(KenningPlist, WhoseFileCannotBeDeletedIsReadAllTheSame) {
    files().addFile(path, system().propertyLists().bytesFor(Dictionary{}));
    recorder().failCall("FileSystem.unlink");
    EXPECT_EQ(KenningPlistFromPath(path), Dictionary{});
    EXPECT_THAT(lines(),
                ElementsAre(frameworkLine(LogLevel::Error, "Could not delete kenning plist " +
                                                               path + ": Input/output error")));
}

class KenningIngestion : public SyncClientTest {
protected:
    void process(const Dictionary& plist, const std::string& id = "55",
                 std::int64_t checksum = 66) {
        client();
        forget();
        client()._processKenningPlist(plist, id, checksum);
    }
};

TEST_F(KenningIngestion, BothBlobsAreStoredInOneTransaction) {
    process({{"kenning_metadata", Data{1}}, {"kenning_similarities", Data{2}}});
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.performDatabaseTransaction", {}},
                              update(insertMetadata, {55, 66, Data{1}}),
                              update(updateItems, {66, 55}),
                              update(insertSimilarities, {55, Data{2}}),
                              {"KV3Korvane.commit", {}}}));
    EXPECT_EQ(library().committedStatements().size(), 3u);
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, operation, "Updated kenning metadata for 55")));
}

TEST_F(KenningIngestion, SimilaritiesAloneLeaveTheTracksUntouched) {
    process({{"kenning_similarities", Data{2}}});
    EXPECT_EQ(library().committedStatements(), (Calls{update(insertSimilarities, {55, Data{2}})}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, operation, "Updated kenning metadata for 55")));
}

TEST_F(KenningIngestion, MetadataOfAnotherKindIsSkippedWithAWarning) {
    process({{"kenning_metadata", "text"}, {"kenning_similarities", Data{2}}});
    EXPECT_EQ(library().committedStatements(), (Calls{update(insertSimilarities, {55, Data{2}})}));
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Warning, operation, "Unhandled kenning metadata format: text"),
                    line(LogLevel::Debug, operation, "Updated kenning metadata for 55")));
}

TEST_F(KenningIngestion, SimilaritiesOfAnotherKindAreSkippedWithAWarning) {
    process({{"kenning_metadata", Data{1}}, {"kenning_similarities", 5}});
    EXPECT_EQ(library().committedStatements(),
              (Calls{update(insertMetadata, {55, 66, Data{1}}), update(updateItems, {66, 55})}));
    EXPECT_THAT(
        lines(),
        ElementsAre(line(LogLevel::Warning, operation, "Unhandled kenning similarities format: 5"),
                    line(LogLevel::Debug, operation, "Updated kenning metadata for 55")));
}

TEST_F(KenningIngestion, WithoutEitherBlobNothingIsWrittenAndTheUpdateCountsAsDone) {
    process({{"other", Data{1}}});
    EXPECT_EQ(calls(),
              (Calls{{"KV3Korvane.performDatabaseTransaction", {}}, {"KV3Korvane.commit", {}}}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, operation, "Updated kenning metadata for 55")));
}

TEST_F(KenningIngestion, AFailingUpdateOfTheTracksRollsTheMetadataBack) {
    client();
    recorder().failCall("KV3DatabaseConnection.executeUpdate", 2);
    process({{"kenning_metadata", Data{1}}, {"kenning_similarities", Data{2}}});
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.performDatabaseTransaction", {}},
                              update(insertMetadata, {55, 66, Data{1}}),
                              update(updateItems, {66, 55}),
                              {"KV3Korvane.rollback", {}}}));
    EXPECT_EQ(library().committedStatements(), Calls{});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, operation,
                                          "Could not update kenning metadata: (\n"
                                          "    kenning_metadata,\n    kenning_similarities\n)")));
}

TEST_F(KenningIngestion, AFailingInsertOfTheMetadataEndsTheTransaction) {
    client();
    recorder().failCall("KV3DatabaseConnection.executeUpdate", 1);
    process({{"kenning_metadata", Data{1}}, {"kenning_similarities", Data{2}}});
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.performDatabaseTransaction", {}},
                              update(insertMetadata, {55, 66, Data{1}}),
                              {"KV3Korvane.rollback", {}}}));
}

TEST_F(KenningIngestion, AFailingInsertOfTheSimilaritiesRollsAllBack) {
    client();
    recorder().failCall("KV3DatabaseConnection.executeUpdate", 3);
    process({{"kenning_metadata", Data{1}}, {"kenning_similarities", Data{2}}});
    EXPECT_EQ(library().committedStatements(), Calls{});
    EXPECT_EQ(lines().back().level, LogLevel::Error);
}

TEST_F(KenningIngestion, AnIdThatIsNoNumberIsZero) {
    process({{"kenning_similarities", Data{2}}}, "no number");
    EXPECT_EQ(library().committedStatements(), (Calls{update(insertSimilarities, {0, Data{2}})}));
}

TEST_F(KenningIngestion, TheConfigurationIsStoredWithoutTransaction) {
    client();
    client()._processKenningConfigPlist(Dictionary{{"data", Data{9}},
                                                   {"default_num_results", 10},
                                                   {"min_num_results", 5},
                                                   {"version", "1.0"}});
    EXPECT_EQ(calls(), (Calls{{"KV3Korvane.databaseConnectionAllowingWrites", {true}},
                              update(insertConfig, {Data{9}, 10, 5, "1.0"})}));
    EXPECT_THAT(lines(),
                ElementsAre(line(LogLevel::Debug, configOperation,
                                 "Updated Kenning configuration: {\n"
                                 "    data = {length = 1, bytes = 0x09};\n"
                                 "    default_num_results = 10;\n    min_num_results = 5;\n"
                                 "    version = 1.0;\n}")));
}

TEST_F(KenningIngestion, AMissingVersionIsStoredAsNull) {
    client()._processKenningConfigPlist(
        Dictionary{{"data", Data{9}}, {"default_num_results", 10}, {"min_num_results", 5}});
    EXPECT_EQ(library().committedStatements(),
              (Calls{update(insertConfig, {Data{9}, 10, 5, Value()})}));
}

TEST_F(KenningIngestion, AConfigurationThatIsNoDictionaryIsRefused) {
    client();
    client()._processKenningConfigPlist("text");
    client()._processKenningConfigPlist(Value());
    EXPECT_EQ(calls(), Calls{});
    EXPECT_THAT(
        lines(),
        ElementsAre(
            line(LogLevel::Error, configOperation, "No valid kenning_config found in: text"),
            line(LogLevel::Error, configOperation, "No valid kenning_config found in: (null)")));
}

TEST_F(KenningIngestion, AConfigurationThatCannotBeStoredIsLogged) {
    client();
    recorder().failCall("KV3DatabaseConnection.executeUpdate");
    client()._processKenningConfigPlist(Dictionary{{"version", 1}});
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Error, configOperation,
                                          "Failed to update Kenning configuration: {\n"
                                          "    version = 1;\n}")));
}

}  // namespace
}  // namespace sync_bundle_tests
