#include <stdexcept>

#include "tests/SyncBundle/sync_client_test.h"

namespace sync_bundle_tests {
namespace {

const std::string operation = "metadataUpdate:forAsset:withNewAnchor:";

class MetadataUpdate : public SyncClientTest {
protected:
    void update() {
        client();
        forget();
        client().metadataUpdate(_metadata, makeAsset("5", true), "anchor 7");
    }
    // The call of the import among the recorded ones.
    Call import() {
        const Calls found = recorder().callsNamed({"KVMediaLibraryService.performImport"});
        return found.size() == 1 ? found.front() : Call{};
    }
    Dictionary options() {
        const Call call = import();
        return call.arguments.size() == 5 && call.arguments[4].dictionary()
                   ? *call.arguments[4].dictionary()
                   : Dictionary{};
    }
    static LogLine completion(const std::string& what) {
        return line(LogLevel::Info, operation, "metadataUpdate import complete. " + what);
    }

    const Dictionary _metadata{{"title", "T"}, {"rating", 80}};
};

TEST_F(MetadataUpdate, IsImportedFromTheHostsSourceWithTheNewAnchor) {
    update();
    const Call performed = import();
    const Dictionary expected{{"KVImportOperationOptionIsResetSyncKey", false},
                              {"KVImportOperationOptionIsVeskaEnabledKey", false},
                              {"KVImportOperationOptionSyncAnchorKey", "anchor 7"}};
    ASSERT_EQ(performed.arguments.size(), 5u);
    const Value trackData = performed.arguments[2];
    ASSERT_TRUE(trackData.isData());
    EXPECT_EQ(system().propertyLists().parse(*trackData.data(), nullptr), Value(_metadata));
    recorder().clear();
    update();
    EXPECT_EQ(calls(), (Calls{{"OperatingSystem.makeSemaphore", {0}},
                              {"WorkQueue.async", {"global.background"}},
                              {"Semaphore.wait", {}},
                              {"KLCloudClient.make", {}},
                              {"OperatingSystem.makeSemaphore", {0}},
                              {"KLCloudClient.isAuthenticated", {"global.default"}},
                              {"WorkQueue.async", {"global.default"}},
                              {"Semaphore.wait", {}},
                              {"Semaphore.signal", {}},
                              {"PropertyLists.serialize", {_metadata, 200}},
                              {"KVMediaLibraryService.performImport",
                               {6, "/var/mobile/Media/Tessel_Control/library.db",
                                import().arguments[2], Value(), expected}},
                              {"Semaphore.signal", {}}}));
    EXPECT_THAT(lines(), ElementsAre(completion("success=1, err=(null)")));
}

TEST_F(MetadataUpdate, AFailedImportIsLoggedAndTheCallReturns) {
    media().importService().success = false;
    media().importService().error = Error("service", 9);
    update();
    EXPECT_THAT(lines(), ElementsAre(completion("success=0, err=Error Domain=service Code=9")));
}

TEST_F(MetadataUpdate, TheCompletionIsLoggedBeforeTheCallReturns) {
    media().importService().importTime = 5 * second;
    media().importService().whileImporting = [this] { EXPECT_THAT(lines(), IsEmpty()); };
    update();
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(MetadataUpdate, IsNeverAResetWhateverTheSyncBefore) {
    client().reconcileSync(2, "anchor 6", {}, nullptr);
    update();
    const Value isReset = options()["KVImportOperationOptionIsResetSyncKey"];
    EXPECT_TRUE(isReset.isBoolean());
    EXPECT_FALSE(isReset.boolValue());
}

TEST_F(MetadataUpdate, AsksTheCloudClientAnewEachTime) {
    for (const bool isAuthenticated : {true, false, true}) {
        platform().cloud().isAuthenticated = isAuthenticated;
        update();
        const Value isEnabled = options()["KVImportOperationOptionIsVeskaEnabledKey"];
        EXPECT_TRUE(isEnabled.isBoolean());
        EXPECT_EQ(isEnabled.boolValue(), isAuthenticated);
    }
}

TEST_F(MetadataUpdate, WhatIsNoPropertyListIsStillAskedForWithoutData) {
    recorder().failCall("PropertyLists.serialize");
    update();
    ASSERT_EQ(import().arguments.size(), 5u);
    EXPECT_TRUE(import().arguments[2].isNull());
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(MetadataUpdate, WaitsForTheImportHoweverLongItTakes) {
    media().importService().importTime = 3600 * second;
    const platform::Nanoseconds before = scheduler().now();
    update();
    EXPECT_EQ(scheduler().now() - before, 3600 * second);
}

TEST_F(MetadataUpdate, WaitsForACloudClientThatAnswersLate) {
    platform().cloud().isAuthenticated = true;
    platform().cloud().answerTime = 60 * second;
    const platform::Nanoseconds before = scheduler().now();
    update();
    EXPECT_EQ(scheduler().now() - before, 60 * second);
    EXPECT_TRUE(options()["KVImportOperationOptionIsVeskaEnabledKey"].boolValue());
}

TEST_F(MetadataUpdate, ReadsNeitherTheAssetNorTheLibrary) {
    client();
    forget();
    client().metadataUpdate(_metadata, nullptr, "anchor 7");
    EXPECT_EQ(lines().size(), 1u);
    EXPECT_EQ(recorder().callsNamed({"KV3Korvane.valueForDatabaseProperty"}), Calls{});
}

TEST_F(MetadataUpdate, AnExceptionOfTheImportJobReachesTheCallersThread) {
    platform().cloud().makeClientThrows = true;
    EXPECT_THROW(update(), std::runtime_error);
    platform().cloud().makeClientThrows = false;
    media().importService().performImportThrows = true;
    EXPECT_THROW(update(), std::runtime_error);
}

}  // namespace
}  // namespace sync_bundle_tests
