// Installs received downloads, one after the other on a queue, so that a library that is busy keeps
// no other download waiting.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/downloads/download_installer.h"
#include "device/downloads/download_list.h"
#include "platform/operating_system.h"

namespace downloads {

// Where a download's bytes are until it is installed; a device path.
inline constexpr char StagingDirectory[] = "/var/mobile/Media/Downloads/Incoming";
std::string stagingPath(std::int64_t persistentIdentifier);

DownloadItem itemOf(const DownloadRecord& record);

// Any thread. The jobs share it; file system and installer outlive them.
class InstallJobs : public std::enable_shared_from_this<InstallJobs> {
public:
    struct Result {
        std::int64_t persistentIdentifier = 0;
        platform::OptionalError error;  // absent: it is installed, or was cancelled before
    };

    // Called on the queue.
    struct Observers {
        std::function<void()> begins;  // before each install
        std::function<void()> ended;   // after it
    };

    InstallJobs(device::RootedFileSystem& files, std::shared_ptr<DownloadList> list,
                DownloadInstaller& installer, std::shared_ptr<platform::WorkQueue> queue,
                Observers observers);

    // Every byte is on the disk. After success the download is off the list; after a failure it
    // waits.
    void add(std::int64_t persistentIdentifier);
    // Its source will never give the file: the download goes too when the item was waiting for
    // nothing else.
    void giveUp(std::int64_t persistentIdentifier);
    std::vector<Result> takeResults();
    // Jobs that have not begun do nothing from here on; waits for the one that has.
    void stop();

private:
    void run(std::int64_t persistentIdentifier);
    void runGivingUp(std::int64_t persistentIdentifier);
    platform::OptionalError install(std::int64_t persistentIdentifier);

    device::RootedFileSystem& _files;
    const std::shared_ptr<DownloadList> _list;
    DownloadInstaller& _installer;
    const std::shared_ptr<platform::WorkQueue> _queue;
    const Observers _observers;

    std::mutex _running;  // held by the job that is running; protects _isStopped
    bool _isStopped = false;
    std::mutex _mutex;  // protects _results
    std::vector<Result> _results;
};

}  // namespace downloads
