// What the daemon asks of a plug-in before it serves with it.
#include "device/orlith/bundle.h"

#include <gtest/gtest.h>

namespace orlith::testing {
namespace {

class Client final : public ORClient {
public:
    std::vector<std::string> served{"Media"};

    bool respondsTo(ORClientOperation) const override { return false; }
    std::vector<std::string> supportedDataclasses() override { return served; }
};

class SyncClient final : public ORSyncClient {
public:
    bool respondsTo(ORSyncClientOperation) const override { return false; }
    void setDelegate(std::shared_ptr<ORSyncClientDelegate>) override {}
    std::string syncDataClass() override { return "Media"; }
    std::int64_t currentRevision() override { return 0; }
    platform::Value revisionVersionToken() override { return {}; }
    void resetSyncDataWithCompletion(const ErrorHandler&) override {}
    void getChangesForSyncType(std::uint32_t, std::uint32_t, std::int64_t, std::int64_t,
                               const platform::Dictionary&, std::shared_ptr<platform::OutputStream>,
                               const StartHandler&, const ProgressHandler&,
                               const ErrorHandler&) override {}
    void applyChangesForSyncType(std::uint32_t, std::uint32_t,
                                 std::shared_ptr<platform::InputStream>,
                                 const platform::Dictionary&, const ProgressHandler&,
                                 const ApplyHandler&) override {}
    void syncSessionCompletedWithError(const platform::OptionalError&, bool) override {}
};

class AssetClient final : public ORAssetClient {
public:
    bool respondsTo(ORAssetClientOperation) const override { return false; }
    std::string assetDataClass() override { return "Media"; }
    void assetsToSyncWithCompletion(const AssetsHandler&) override {}
    void getDataForAsset(std::shared_ptr<ORAsset>, DataHandler) override {}
    void assetSyncDidCompleteWithError(const std::shared_ptr<ORAsset>&,
                                       const platform::OptionalError&) override {}
    void assetSyncDidUpdateProgress(const std::shared_ptr<ORAsset>&, double) override {}
    void assetSyncDidComplete() override {}
};

class BundleClients : public ::testing::Test {
protected:
    std::string problem() const {
        const platform::OptionalError error = checkClients(clients);
        return error ? error->text() : "";
    }

    const std::shared_ptr<Client> client = std::make_shared<Client>();
    ORBundleClients clients{client, std::make_shared<SyncClient>(),
                            std::make_shared<AssetClient>()};
};

TEST_F(BundleClients, OfOneDataClassAreTaken) {
    EXPECT_EQ(problem(), "");
}

TEST_F(BundleClients, ThatExchangeWhatTheyDoNotServeAreRefused) {
    client->served = {"Photos"};
    EXPECT_EQ(problem(), "exchanges \"Media\", which is no data that it serves");
    client->served = {};
    EXPECT_NE(problem(), "");
}

TEST_F(BundleClients, OfWhichOneIsMissingAreRefused) {
    for (const auto take : {+[](ORBundleClients& c) { c.client = nullptr; },
                            +[](ORBundleClients& c) { c.syncClient = nullptr; },
                            +[](ORBundleClients& c) { c.assetClient = nullptr; }}) {
        const ORBundleClients all = clients;
        take(clients);
        EXPECT_EQ(problem(), "did not give a client of each kind");
        clients = all;
    }
}

}  // namespace
}  // namespace orlith::testing
