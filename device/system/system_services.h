// The embedded device's operating-system services, all rooted in one device directory.
//
// One per process and directory. Lives until every other service has gone; before that, shutdown
// ends the jobs.
#pragma once

#include <chrono>
#include <string>

#include "device/system/named_notification_service.h"
#include "device/system/notification_center.h"
#include "device/system/property_list_service.h"
#include "device/system/rooted_file_system.h"
#include "device/system/work_queues.h"
#include "platform/operating_system.h"

namespace device {

class SystemServices final : public platform::OperatingSystem {
public:
    // A directory of the real disk, made when it is missing. Throws std::system_error when it
    // cannot be made, opened or written.
    explicit SystemServices(const std::string& deviceRoot);

    // See WorkQueues::shutdown.
    bool shutdown(std::chrono::milliseconds deadline) { return _queues.shutdown(deadline); }

    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label) override;
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority) override;
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value) override;
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue> queue) override;
    double absoluteTime() override;
    platform::Nanoseconds monotonicTime() override;

    RootedFileSystem& fileSystem() override { return _files; }
    NotificationCenter& defaultNotificationCenter() override { return _center; }
    NamedNotificationService& namedNotifications() override { return _namedNotifications; }
    PropertyListService& propertyLists() override { return _propertyLists; }

private:
    RootedFileSystem _files;
    NotificationCenter _center;
    NamedNotificationService _namedNotifications;
    PropertyListService _propertyLists;
    WorkQueues _queues;  // last, so that no job outlives what it uses
};

}  // namespace device
