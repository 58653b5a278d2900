// The loadable module, opened as a daemon opens it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/support/recording_platform.h"

namespace sync_bundle_tests {
namespace {

constexpr auto stopSuppressing = KV3KorvaneBackgroundTasksShouldStopSuppressingChangesNotification;

class Module : public testing::Test {
protected:
    void SetUp() override {
        // The module keeps itself loaded, so the handle is not needed later.
        void* const handle = dlopen(KV_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
        _open = reinterpret_cast<ORBundleOpenFunction*>(dlsym(handle, ORBundleOpenSymbol));
        ASSERT_NE(_open, nullptr) << dlerror();
    }

    support::RecordingPlatform _platform;
    ORBundleOpenFunction* _open = nullptr;
};

TEST_F(Module, OpensAndPlaysEveryRole) {
    ORBundleClients clients;
    ASSERT_EQ(_open(ORBundleInterfaceVersion, &_platform, &clients), ORBundleStatus::Opened);
    _platform.scheduler().runDueJobs();
    ASSERT_NE(clients.client, nullptr);
    EXPECT_EQ(clients.client->supportedDataclasses(), std::vector<std::string>{"Media"});
    EXPECT_TRUE(clients.syncClient->respondsTo(ORSyncClientOperation::setDelegate));
    EXPECT_EQ(clients.assetClient->assetDataClass(), "Media");
    EXPECT_EQ(_platform.operatingSystem().namedNotifications().postsOf(stopSuppressing), 1u);
}

TEST_F(Module, RefusesAnotherInterfaceVersionAndTouchesNothing) {
    for (const std::uint32_t version : {0u, ORBundleInterfaceVersion + 1, 0xFFFFFFFFu}) {
        ORBundleClients clients;
        EXPECT_EQ(_open(version, &_platform, &clients), ORBundleStatus::WrongInterfaceVersion);
        EXPECT_EQ(clients.client, nullptr);
        EXPECT_EQ(clients.syncClient, nullptr);
        EXPECT_EQ(clients.assetClient, nullptr);
        // The pointers may belong to another layout: they are not followed.
        EXPECT_EQ(_open(version, nullptr, nullptr), ORBundleStatus::WrongInterfaceVersion);
    }
    EXPECT_EQ(_platform.recorder().calls(), support::Calls{});
}

TEST_F(Module, WithoutPlatformOrClientsCannotBeOpened) {
    ORBundleClients clients;
    EXPECT_EQ(_open(ORBundleInterfaceVersion, nullptr, &clients), ORBundleStatus::InitFailed);
    EXPECT_EQ(_open(ORBundleInterfaceVersion, &_platform, nullptr), ORBundleStatus::InitFailed);
    EXPECT_EQ(_platform.recorder().calls(), support::Calls{});
}

TEST_F(Module, OpenedTwiceGivesTwoClients) {
    ORBundleClients first;
    ORBundleClients second;
    ASSERT_EQ(_open(ORBundleInterfaceVersion, &_platform, &first), ORBundleStatus::Opened);
    ASSERT_EQ(_open(ORBundleInterfaceVersion, &_platform, &second), ORBundleStatus::Opened);
    EXPECT_NE(first.client, second.client);
}

TEST_F(Module, NoExceptionLeavesTheEntryPoint) {
    _platform.storeDownloads().makeManagerThrows = true;
    ORBundleClients clients;
    EXPECT_EQ(_open(ORBundleInterfaceVersion, &_platform, &clients), ORBundleStatus::InitFailed);
    EXPECT_EQ(clients.client, nullptr);
}

TEST_F(Module, ReleasingAClientTearsItDown) {
    ORBundleClients clients;
    ASSERT_EQ(_open(ORBundleInterfaceVersion, &_platform, &clients), ORBundleStatus::Opened);
    _platform.scheduler().runDueJobs();
    _platform.recorder().clear();
    clients = {};
    EXPECT_EQ(_platform.recorder().calls(),
              (support::Calls{{"KV3Korvane.reconnectToDatabase", {}},
                              {"NotificationCenter.removeObserver", {}}}));
}

}  // namespace
}  // namespace sync_bundle_tests
