#include "tests/support/virtual_operating_system.h"

namespace support {

std::string globalQueueLabel(platform::QueuePriority priority) {
    switch (priority) {
        case platform::QueuePriority::High:
            return "global.high";
        case platform::QueuePriority::Default:
            return "global.default";
        case platform::QueuePriority::Low:
            return "global.low";
        case platform::QueuePriority::Background:
            return "global.background";
    }
    return "?";
}

VirtualOperatingSystem::VirtualOperatingSystem(Recorder& recorder)
    : _recorder(recorder),
      _scheduler(recorder),
      _fileSystem(recorder),
      _notificationCenter(recorder),
      _namedNotifications(recorder),
      _propertyLists(recorder),
      _start(_scheduler.now()) {}

std::shared_ptr<platform::WorkQueue> VirtualOperatingSystem::makeSerialQueue(
    std::string_view label) {
    _recorder.record("OperatingSystem.makeSerialQueue", {label});
    return _scheduler.makeQueue(label, true);
}

std::shared_ptr<platform::WorkQueue> VirtualOperatingSystem::globalQueue(
    platform::QueuePriority priority) {
    return _scheduler.makeQueue(globalQueueLabel(priority), false);
}

std::shared_ptr<platform::Semaphore> VirtualOperatingSystem::makeSemaphore(std::int64_t value) {
    _recorder.record("OperatingSystem.makeSemaphore", {value});
    return _scheduler.makeSemaphore(value);
}

std::shared_ptr<platform::TimerSource> VirtualOperatingSystem::makeTimer(
    std::shared_ptr<platform::WorkQueue> queue) {
    _recorder.record("OperatingSystem.makeTimer", {queue->label()});
    return _scheduler.makeTimer(std::move(queue));
}

double VirtualOperatingSystem::absoluteTime() {
    return _wallClockAtStart + static_cast<double>(_scheduler.now() - _start) / 1e9;
}

platform::Nanoseconds VirtualOperatingSystem::monotonicTime() {
    return _scheduler.now();
}

void VirtualOperatingSystem::jumpAbsoluteTime(double seconds) {
    _wallClockAtStart = _wallClockAtStart + seconds;
}

}  // namespace support
