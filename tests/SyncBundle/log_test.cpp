#include "SyncBundle/log.h"

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

class SyncBundleLog : public SyncClientTest {};

TEST_F(SyncBundleLog, ALineCarriesFileOperationLineCategoryAndLevel) {
    KVLog(Warning, "operation:with:", "%@ of %d", "one", 2);
    const int loggedAt = __LINE__ - 1;
    ASSERT_EQ(log().records().size(), 1u);
    const platform::LogRecord record = log().records().front();
    EXPECT_EQ(record.level, LogLevel::Warning);
    EXPECT_EQ(record.category, "com.vantor.KVSyncClient");
    EXPECT_EQ(record.file, "SyncBundle/KVSyncClient");
    EXPECT_EQ(record.operation, "operation:with:");
    EXPECT_EQ(record.line, loggedAt);
    EXPECT_EQ(record.message, "one of 2");
}

TEST_F(SyncBundleLog, ArgumentsAreNotEvenEvaluatedWhileTheLevelIsOff) {
    int built = 0;
    const auto argument = [&built] { return ++built; };
    log().setHighestLevel(LogLevel::Info);
    KVLog(Debug, "operation", "%d", argument());
    EXPECT_EQ(built, 0);
    EXPECT_THAT(lines(), IsEmpty());
    KVLog(Info, "operation", "%d", argument());
    EXPECT_EQ(built, 1);
    EXPECT_THAT(lines(), ElementsAre(line(LogLevel::Info, "operation", "1")));
}

TEST_F(SyncBundleLog, TheListOfTransfersIsNotPrintedWhileTheLevelIsOff) {
    log().setHighestLevel(LogLevel::Info);
    client().outstandingAssetTransfersWithDownloadManager(nullptr);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(SyncBundleLog, TheLevelsAreThoseOfSyslog) {
    EXPECT_EQ(static_cast<int>(LogLevel::Critical), 2);
    EXPECT_EQ(static_cast<int>(LogLevel::Error), 3);
    EXPECT_EQ(static_cast<int>(LogLevel::Warning), 4);
    EXPECT_EQ(static_cast<int>(LogLevel::Info), 6);
    EXPECT_EQ(static_cast<int>(LogLevel::Debug), 7);
}

}  // namespace
}  // namespace sync_bundle_tests
