// The daemon's reports: each asks the plug-in what it responds to, and a slow one holds up no
// other.
#include <gmock/gmock.h>

#include <future>

#include "device/korvane/account_cache.h"
#include "device/orlith/daemon_services.h"
#include "device/orlith/library_access.h"
#include "device/orlith/reports_service.h"
#include "device/system/property_list_service.h"
#include "tests/device/korvane/library_fixture.h"

namespace orlith::testing {
namespace {

using platform::Dictionary;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A plug-in that answers what the test says.
class ReportingClient final : public ORClient {
public:
    std::set<ORClientOperation> absent;
    Dictionary metrics;
    std::optional<std::set<std::string>> disabled;
    std::shared_future<void> cloud;  // when valid, waited for before the disabled kinds are told
    std::promise<void> cloudIsAsked;
    std::function<void(const Dictionary& update, const std::string& anchor)> onUpdate;
    int clears = 0;

    bool respondsTo(ORClientOperation operation) const override {
        return !absent.contains(operation);
    }
    std::vector<std::string> supportedDataclasses() override { return {"Media"}; }
    void pathsToBackup(std::vector<std::string>* paths, std::vector<std::string>*) override {
        *paths = {"/var/a", "/var/\xff"};
    }
    std::set<std::string> vantorIDsForAssets() override { return {"a", "b"}; }
    Dictionary installedAssetMetrics() override { return metrics; }
    std::optional<std::set<std::string>> disabledAssetTypes() override {
        if (cloud.valid()) {
            cloudIsAsked.set_value();
            cloud.wait();
        }
        return disabled;
    }
    void clearSyncData() override { ++clears; }
    void metadataUpdate(const Dictionary& update, const std::shared_ptr<ORAsset>& asset,
                        const std::string& newAnchor) override {
        EXPECT_EQ(asset->identifier(), "1");
        EXPECT_TRUE(asset->isDownload());
        onUpdate(update, newAnchor);
    }
};

// The anchor is what the test says, and sessions are counted.
class AnchoredLibrary final : public LibraryAccess {
public:
    std::string anchorNow = "host-3";
    platform::OptionalError failure;
    int sessions = 0;

    std::string libraryUID() override { return "uid"; }
    std::string anchor() override { return anchorNow; }
    std::int64_t revision() override { return 7; }
    void sessionBegan() override { ++sessions; }
    void sessionEnded() override { sessions += 100; }
    void registerHostData(const std::string&) override {}
    void unregisterHostData() override {}
    platform::OptionalError lastHostImportFailure() override { return failure; }
    std::vector<SavedChanges> savedChanges(std::uint32_t) override { return {}; }
    std::int64_t coveredRevision() override { return 0; }
    std::vector<std::string> filesHeldByHostAlone() override { return {}; }
    void adoptFoundPictures() override {}
    void discardChapterPictures(std::int64_t, const std::vector<std::uint64_t>&) override {}
    LibraryStatistics statistics() override { return {}; }
    std::vector<KeptPlace> keptPlaces() override { return {}; }
    void forEachTrack(const std::function<bool(const korvane::ListedTrack&)>&) override {}
    void forEachPlaylist(const std::function<bool(const korvane::ListedPlaylist&)>&) override {}
    EditOutcome rate(const std::string&, std::uint32_t) override { return {}; }
    EditOutcome recordPlay(const std::string&) override { return {}; }
};

class Reports : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        add({.pid = 1, .title = "One"});
        service.emplace(
            ReportsParts{{client, *library, access, daemon, propertyLists}, slot, log, calls});
    }

    link::UpdateMetadataReply update(const std::string& track,
                                     const std::vector<std::pair<std::string, std::string>>& set) {
        link::UpdateMetadataRequest request;
        request.set_track(track);
        for (const auto& [field, value] : set) {
            request.add_fields()->set_field(field);
            request.mutable_fields()->rbegin()->set_value(value);
        }
        link::UpdateMetadataReply reply;
        EXPECT_TRUE(service->UpdateMetadata(&context, &request, &reply).ok());
        return reply;
    }

    ReportingClient client;
    AnchoredLibrary access;
    DaemonServices daemon{files, system};
    device::PropertyListService propertyLists;
    SessionSlot slot;
    CallCounter calls;
    std::optional<ReportsService> service;
    grpc::ServerContext context;
    const link::ReportRequest request;
};

TEST_F(Reports, EachIsWhatThePlugInSays) {
    link::BackupPathsReply paths;
    EXPECT_TRUE(service->BackupPaths(&context, &request, &paths).ok());
    EXPECT_THAT(paths.paths(), ElementsAre("/var/a", "/var/?"));
    link::AccountNamesReply names;
    EXPECT_TRUE(service->AccountNames(&context, &request, &names).ok());
    EXPECT_THAT(names.names(), ElementsAre("a", "b"));
    client.metrics = {{"Music", Dictionary{{"_PhysicalSize", UINT64_MAX}, {"_Count", 3}}},
                      {"Podcast", Dictionary{{"_PurgeableSize", 5}}}};
    link::MetricsReply metrics;
    EXPECT_TRUE(service->Metrics(&context, &request, &metrics).ok());
    ASSERT_EQ(metrics.types_size(), 2);
    EXPECT_EQ(metrics.types(0).physical_size(), UINT64_MAX);
    EXPECT_EQ(metrics.types(0).count(), 3u);
    EXPECT_FALSE(metrics.types(0).has_purgeable_size());
    EXPECT_FALSE(metrics.types(1).has_physical_size());
    EXPECT_EQ(metrics.types(1).purgeable_size(), 5u);
}

TEST_F(Reports, NoDisabledKindsAndNoneAtAllAreToldApart) {
    link::DisabledTypesReply reply;
    EXPECT_TRUE(service->DisabledTypes(&context, &request, &reply).ok());
    EXPECT_FALSE(reply.disables());
    client.disabled = std::set<std::string>{"Music"};
    EXPECT_TRUE(service->DisabledTypes(&context, &request, &reply).ok());
    EXPECT_TRUE(reply.disables());
    EXPECT_THAT(reply.asset_types(), ElementsAre("Music"));
}

TEST_F(Reports, WhatThePlugInDoesNotRespondToIsNotAsked) {
    client.absent = {
        ORClientOperation::pathsToBackup,      ORClientOperation::installedAssetMetrics,
        ORClientOperation::vantorIDsForAssets, ORClientOperation::disabledAssetTypes,
        ORClientOperation::clearSyncData,      ORClientOperation::metadataUpdate};
    link::BackupPathsReply paths;
    link::MetricsReply metrics;
    link::AccountNamesReply names;
    link::DisabledTypesReply types;
    link::ReportDone done;
    const link::UpdateMetadataRequest nothing;
    link::UpdateMetadataReply updated;
    for (const grpc::Status& status : {service->BackupPaths(&context, &request, &paths),
                                       service->Metrics(&context, &request, &metrics),
                                       service->AccountNames(&context, &request, &names),
                                       service->DisabledTypes(&context, &request, &types),
                                       service->ClearSyncData(&context, &request, &done),
                                       service->UpdateMetadata(&context, &nothing, &updated)})
        EXPECT_EQ(status.error_code(), grpc::StatusCode::UNIMPLEMENTED);
    EXPECT_EQ(client.clears, 0);
}

TEST_F(Reports, ACloudThatAnswersLateHoldsUpNoOtherCall) {
    std::promise<void> cloudAnswers;
    client.cloud = cloudAnswers.get_future();
    client.disabled = std::set<std::string>{"Music"};
    auto waiting = std::async(std::launch::async, [&] {
        grpc::ServerContext own;
        link::DisabledTypesReply reply;
        EXPECT_TRUE(service->DisabledTypes(&own, &request, &reply).ok());
        return reply.disables();
    });
    client.cloudIsAsked.get_future().wait();
    link::MetricsReply metrics;
    EXPECT_TRUE(service->Metrics(&context, &request, &metrics).ok());
    link::ReportDone done;
    EXPECT_TRUE(service->ClearSyncData(&context, &request, &done).ok());
    EXPECT_EQ(client.clears, 1);
    cloudAnswers.set_value();
    EXPECT_TRUE(waiting.get());
}

TEST_F(Reports, ADeviceThatIsBusyIsNeitherClearedNorUpdated) {
    std::string holder;
    ASSERT_TRUE(slot.acquire(
        {"kitchen-pc", 5, {}}, [](const std::string&) {}, holder));
    link::ReportDone done;
    const grpc::Status cleared = service->ClearSyncData(&context, &request, &done);
    EXPECT_EQ(cleared.error_code(), grpc::StatusCode::ABORTED);
    EXPECT_THAT(cleared.error_message(), HasSubstr("kitchen-pc"));
    link::UpdateMetadataRequest wanted;
    wanted.set_track("One");
    link::UpdateMetadataReply updated;
    EXPECT_EQ(service->UpdateMetadata(&context, &wanted, &updated).error_code(),
              grpc::StatusCode::ABORTED);
    EXPECT_EQ(client.clears, 0);
    slot.release();
    EXPECT_TRUE(service->ClearSyncData(&context, &request, &done).ok());
    EXPECT_FALSE(slot.isTaken());
}

TEST_F(Reports, AnUpdateIsBelievedWhenTheAnchorIsTheNewOne) {
    client.onUpdate = [&](const Dictionary& update, const std::string& anchor) {
        EXPECT_EQ(update, (Dictionary{{"persistent_id", 1},
                                      {"fields", Dictionary{{"title", "Uno"}, {"rating", 80}}}}));
        EXPECT_TRUE(slot.isTaken());
        EXPECT_EQ(access.sessions, 1);
        access.anchorNow = anchor;
    };
    const auto reply = update("One", {{"title", "Uno"}, {"rating", "80"}});
    EXPECT_TRUE(reply.success());
    EXPECT_EQ(reply.title(), "One");
    EXPECT_EQ(reply.anchor(), "host-3+1");
    EXPECT_EQ(reply.revision(), 7);
    EXPECT_EQ(access.sessions, 101);
    EXPECT_FALSE(slot.isTaken());
}

TEST_F(Reports, AnUpdateThatFailedSaysWhyThoughThePlugInOnlyLogsIt) {
    client.onUpdate = [](const Dictionary&, const std::string&) {};
    EXPECT_THAT(update("One", {{"title", "Uno"}}).failure().text(), HasSubstr("no reason"));
    access.failure = platform::Error("service", 7, "a track has no field \"x\"");
    EXPECT_EQ(update("One", {{"x", "Uno"}}).failure().text(), "a track has no field \"x\"");
    EXPECT_THAT(update("One", {{"title", "\xff"}}).failure().text(),
                HasSubstr("cannot be written as a property list"));
    EXPECT_FALSE(update("Nobody", {{"title", "x"}}).success());
    EXPECT_EQ(access.sessions, 404);
}

TEST_F(Reports, AnExceptionOfThePlugInEndsThatCallAlone) {
    client.onUpdate = [](const Dictionary&, const std::string&) {
        throw std::runtime_error("no memory");
    };
    link::UpdateMetadataRequest wanted;
    wanted.set_track("One");
    link::UpdateMetadataReply reply;
    EXPECT_EQ(service->UpdateMetadata(&context, &wanted, &reply).error_code(),
              grpc::StatusCode::INTERNAL);
    EXPECT_FALSE(slot.isTaken());
    EXPECT_EQ(access.sessions, 101);
}

TEST_F(Reports, AccountsAreThoseOfTheLibrarysOwnDatabase) {
    link::Account account;
    link::ReportDone done;
    account.set_account(5);
    account.set_name("five");
    EXPECT_TRUE(service->AddAccount(&context, &account, &done).ok());
    EXPECT_TRUE(done.success());
    link::AccountList list;
    EXPECT_TRUE(service->ListAccounts(&context, &request, &list).ok());
    ASSERT_EQ(list.accounts_size(), 1);
    EXPECT_EQ(list.accounts(0).name(), "five");
    account.set_account(-5);
    EXPECT_TRUE(service->AddAccount(&context, &account, &done).ok());
    EXPECT_FALSE(done.success());
    EXPECT_TRUE(service->RemoveAccount(&context, &account, &done).ok());
    EXPECT_EQ(done.failure().code(), korvane::LibraryErrorNotFound);
}

TEST_F(Reports, SizesAreWholeBlocksOfTheDevicesFileSystem) {
    const std::uint64_t block = files.blockSize("/");
    ASSERT_GT(block, 0u);
    EXPECT_EQ(daemon.physicalSizeForLogicalSize(0), 0u);
    EXPECT_EQ(daemon.physicalSizeForLogicalSize(1), block);
    EXPECT_EQ(daemon.physicalSizeForLogicalSize(block), block);
    EXPECT_EQ(daemon.physicalSizeForLogicalSize(block + 1), 2 * block);
    EXPECT_EQ(daemon.physicalSizeForLogicalSize(UINT64_MAX), UINT64_MAX);
    writeFile("/var/mobile/Media/a", "x");
    EXPECT_EQ(daemon.diskUsageForPath("/private/var/mobile/Media"),
              files.diskUsage("/var/mobile/Media"));
}

}  // namespace
}  // namespace orlith::testing
