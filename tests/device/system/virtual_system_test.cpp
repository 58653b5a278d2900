// The doubles of the operating-system services keep the contracts of the real ones. The property
// lists of the double are by agreement between a test and its subject, and claim nothing.
#include "tests/device/system/file_system_contract.h"
#include "tests/device/system/notification_center_contract.h"
#include "tests/device/system/small_service_contracts.h"
#include "tests/device/system/work_queue_contract.h"
#include "tests/support/virtual_operating_system.h"

namespace test {

struct VirtualSystem {
    platform::OperatingSystem& operatingSystem() { return system; }
    platform::FileSystem& fileSystem() { return system.fileSystem(); }
    platform::NotificationCenter& notificationCenter() {
        return system.defaultNotificationCenter();
    }
    void writeFile(const std::string& path, std::string_view contents) {
        system.fileSystem().addFile(path, platform::Data(contents.begin(), contents.end()));
    }
    bool runUntil(const std::function<bool()>& condition) {
        system.scheduler().runDueJobs();
        while (!condition()) {
            if (!system.scheduler().hasWork())
                return false;
            system.scheduler().advance(100'000);
        }
        return true;
    }

    support::Recorder recorder;
    support::VirtualOperatingSystem system{recorder};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, FileSystemContract, VirtualSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, NotificationCenterContract, VirtualSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, NamedNotificationsContract, VirtualSystem);
INSTANTIATE_TYPED_TEST_SUITE_P(Virtual, WorkQueueContract, VirtualSystem);

}  // namespace test
