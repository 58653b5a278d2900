// The operating-system services over a virtual clock and a file system in memory.
#pragma once

#include <atomic>

#include "tests/support/memory_file_system.h"
#include "tests/support/recording_notifications.h"
#include "tests/support/recording_property_lists.h"
#include "tests/support/virtual_scheduler.h"

namespace support {

class VirtualOperatingSystem : public platform::OperatingSystem {
public:
    explicit VirtualOperatingSystem(Recorder& recorder);

    std::shared_ptr<platform::WorkQueue> makeSerialQueue(std::string_view label) override;
    std::shared_ptr<platform::WorkQueue> globalQueue(platform::QueuePriority priority) override;
    std::shared_ptr<platform::Semaphore> makeSemaphore(std::int64_t value) override;
    std::shared_ptr<platform::TimerSource> makeTimer(
        std::shared_ptr<platform::WorkQueue> queue) override;
    // Goes with the virtual clock, from 1,000,000 s.
    double absoluteTime() override;
    platform::Nanoseconds monotonicTime() override;

    MemoryFileSystem& fileSystem() override { return _fileSystem; }
    RecordingNotificationCenter& defaultNotificationCenter() override {
        return _notificationCenter;
    }
    RecordingNamedNotifications& namedNotifications() override { return _namedNotifications; }
    RecordingPropertyLists& propertyLists() override { return _propertyLists; }

    VirtualScheduler& scheduler() { return _scheduler; }
    // Moves the wall clock alone.
    void jumpAbsoluteTime(double seconds);

private:
    Recorder& _recorder;
    VirtualScheduler _scheduler;
    MemoryFileSystem _fileSystem;
    RecordingNotificationCenter _notificationCenter;
    RecordingNamedNotifications _namedNotifications;
    RecordingPropertyLists _propertyLists;
    const platform::Nanoseconds _start;
    std::atomic<double> _wallClockAtStart{1'000'000.0};
};

// The label of a global queue, e.g. "global.background".
std::string globalQueueLabel(platform::QueuePriority priority);

}  // namespace support
