// The operating-system services as plug-ins reach them: the device's own, with named notifications
// that the daemon's services observe.
#pragma once

#include "device/orlith/observed_notifications.h"
#include "device/system/system_services.h"
#include "platform/operating_system.h"

namespace orlith {

class DaemonOperatingSystem final : public platform::OperatingSystem {
public:
    explicit DaemonOperatingSystem(device::SystemServices& system)
        : _system(system), _notifications(system.namedNotifications()) {}

    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label) override {
        return _system.makeSerialQueue(label);
    }
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority) override {
        return _system.globalQueue(priority);
    }
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value) override {
        return _system.makeSemaphore(value);
    }
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue> queue) override {
        return _system.makeTimer(std::move(queue));
    }
    double absoluteTime() override { return _system.absoluteTime(); }
    platform::Nanoseconds monotonicTime() override { return _system.monotonicTime(); }
    device::RootedFileSystem& fileSystem() override { return _system.fileSystem(); }
    platform::NotificationCenter& defaultNotificationCenter() override {
        return _system.defaultNotificationCenter();
    }
    ObservedNotifications& namedNotifications() override { return _notifications; }
    platform::PropertyLists& propertyLists() override { return _system.propertyLists(); }

private:
    device::SystemServices& _system;
    ObservedNotifications _notifications;
};

}  // namespace orlith
