#include "device/system/system_services.h"

#include <fstream>
#include <system_error>
#include <thread>

#include "tests/device/system/file_system_contract.h"
#include "tests/device/system/notification_center_contract.h"
#include "tests/device/system/small_service_contracts.h"
#include "tests/device/system/work_queue_contract.h"
#include "tests/support/temporary_directory.h"

namespace test {

// The embedded services in a fresh device directory.
struct EmbeddedSystem {
    platform::OperatingSystem& operatingSystem() { return services; }
    platform::FileSystem& fileSystem() { return services.fileSystem(); }
    platform::NotificationCenter& notificationCenter() {
        return services.defaultNotificationCenter();
    }
    void writeFile(const std::string& path, std::string_view contents) {
        std::ofstream(services.fileSystem().realPath(path), std::ios::binary) << contents;
    }
    bool runUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    TemporaryDirectory root;
    device::SystemServices services{root.path()};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, FileSystemContract, EmbeddedSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, NotificationCenterContract, EmbeddedSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, NamedNotificationsContract, EmbeddedSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, PropertyListsContract, EmbeddedSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Embedded, WorkQueueContract, EmbeddedSystem);

}  // namespace test

namespace {

TEST(SystemServices, NamedNotificationsReachWhoeverOpensTheDevicesTable) {
    test::TemporaryDirectory root;
    device::SystemServices services(root.path());
    int token = -1;
    ASSERT_EQ(services.namedNotifications().registerCheck("com.example.total", token), 0u);
    services.namedNotifications().setState(token, 7);
    services.namedNotifications().post("com.example.total");

    const auto table = common::NotificationTable::open(root / "var/run/notifications", nullptr);
    ASSERT_TRUE(table);
    const auto seen = table->find("com.example.total");
    ASSERT_TRUE(seen);
    EXPECT_EQ(table->state(*seen), 7u);
    EXPECT_EQ(table->counter(*seen), 1u);
}

TEST(SystemServices, AFullTableOfNamesRefusesNewOnes) {
    test::TemporaryDirectory root;
    device::SystemServices services(root.path());
    int token = -1;
    std::uint32_t status = 0;
    for (int i = 0; i < 2000 && status == 0; ++i)
        status = services.namedNotifications().registerCheck(std::to_string(i), token);
    EXPECT_EQ(status, device::NamedNotificationService::NoRoom);
}

TEST(SystemServices, ADeviceDirectoryThatCannotBeMadeIsReported) {
    test::TemporaryDirectory root;
    std::ofstream(root / "file") << "x";
    EXPECT_THROW(device::SystemServices(root / "file/device"), std::system_error);
}

TEST(SystemServices, TheClocksRun) {
    test::TemporaryDirectory root;
    device::SystemServices services(root.path());
    const auto before = services.monotonicTime();
    EXPECT_GE(services.monotonicTime(), before);
    EXPECT_NEAR(services.absoluteTime(), static_cast<double>(std::time(nullptr)), 5);
}

}  // namespace
