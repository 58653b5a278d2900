#include "device/downloads/install_jobs.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <exception>

#include "device/system/rooted_file_system.h"

namespace downloads {

std::string stagingPath(std::int64_t persistentIdentifier) {
    return fmt::format("{}/{}", StagingDirectory, persistentIdentifier);
}

DownloadItem itemOf(const DownloadRecord& record) {
    DownloadItem item;
    item.kind = record.kind;
    item.libraryItem = std::strtoll(record.libraryItemIdentifier.c_str(), nullptr, 10);
    item.storeItem = record.number(PropertyStoreItemIdentifier);
    item.storeAccount = record.number(PropertyStoreAccountIdentifier);
    item.title = record.text(PropertyTitle);
    item.fileName = record.text(PropertyFileName);
    item.isTemporary = record.number(PropertyIsTemporary) != 0;
    item.source = record.text(PropertySource);
    return item;
}

InstallJobs::InstallJobs(device::RootedFileSystem& files, std::shared_ptr<DownloadList> list,
                         DownloadInstaller& installer, std::shared_ptr<platform::WorkQueue> queue,
                         Observers observers)
    : _files(files),
      _list(std::move(list)),
      _installer(installer),
      _queue(std::move(queue)),
      _observers(std::move(observers)) {}

void InstallJobs::add(std::int64_t persistentIdentifier) {
    _queue->async(
        [self = shared_from_this(), persistentIdentifier] { self->run(persistentIdentifier); });
}

void InstallJobs::giveUp(std::int64_t persistentIdentifier) {
    _queue->async([self = shared_from_this(), persistentIdentifier] {
        self->runGivingUp(persistentIdentifier);
    });
}

std::vector<InstallJobs::Result> InstallJobs::takeResults() {
    const std::lock_guard lock(_mutex);
    return std::exchange(_results, {});
}

void InstallJobs::stop() {
    const std::lock_guard lock(_running);
    _isStopped = true;
}

void InstallJobs::run(std::int64_t persistentIdentifier) {
    const std::lock_guard running(_running);
    if (_isStopped)
        return;
    Result result{persistentIdentifier, {}};
    try {
        result.error = install(persistentIdentifier);
    } catch (const std::exception& exception) {
        result.error = platform::Error(platform::POSIXErrorDomain, EIO, exception.what());
    }
    {
        const std::lock_guard lock(_mutex);
        _results.push_back(std::move(result));
    }
    _observers.ended();
}

// What is left undone here is done when the file is asked for again.
void InstallJobs::runGivingUp(std::int64_t persistentIdentifier) {
    const std::lock_guard running(_running);
    if (_isStopped)
        return;
    try {
        const auto record = _list->find(persistentIdentifier);
        if (!record || record->phase != VDDownloadPhaseFailed ||
            !_installer.sourceIsGone(itemOf(*record).libraryItem))
            return;
        _files.unlink(stagingPath(persistentIdentifier));
        _list->remove(persistentIdentifier);
    } catch (const std::exception&) {
    }
}

platform::OptionalError InstallJobs::install(std::int64_t persistentIdentifier) {
    const std::string path = stagingPath(persistentIdentifier);
    const auto record = _list->find(persistentIdentifier);
    if (!record || !_list->update(persistentIdentifier, std::string(VDDownloadPhaseInstalling))) {
        _files.unlink(path);
        return std::nullopt;
    }
    _observers.begins();
    if (auto error = _installer.install(itemOf(*record), path)) {
        _list->update(persistentIdentifier, std::string(VDDownloadPhaseWaiting),
                      {{std::string(PropertyError), error->text()}});
        return error;
    }
    _list->remove(persistentIdentifier);
    _files.unlink(path);
    return std::nullopt;
}

}  // namespace downloads
