#include "device/system/system_services.h"

#include <system_error>

#include "device/system/timer_service.h"

namespace device {
namespace {

// Where the table of named notifications lies, its directory made.
std::string notificationTablePath(RootedFileSystem& files) {
    const std::string path(common::NotificationTable::DevicePath);
    if (const auto failed = files.createDirectory(path.substr(0, path.rfind('/'))))
        throw std::system_error(static_cast<int>(failed->code), std::generic_category(), path);
    return files.realPath(path);
}

}  // namespace

SystemServices::SystemServices(const std::string& deviceRoot)
    : _files(deviceRoot), _namedNotifications(notificationTablePath(_files)) {}

std::shared_ptr<platform::WorkQueue> SystemServices::makeSerialQueue(std::string_view label) {
    return _queues.makeSerialQueue(label);
}

std::shared_ptr<platform::WorkQueue> SystemServices::globalQueue(platform::QueuePriority priority) {
    return _queues.globalQueue(priority);
}

std::shared_ptr<platform::Semaphore> SystemServices::makeSemaphore(std::int64_t value) {
    return device::makeSemaphore(value);
}

std::shared_ptr<platform::TimerSource> SystemServices::makeTimer(
    std::shared_ptr<platform::WorkQueue> queue) {
    return _queues.makeTimer(std::move(queue));
}

double SystemServices::absoluteTime() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

platform::Nanoseconds SystemServices::monotonicTime() {
    return monotonicNow();
}

}  // namespace device
