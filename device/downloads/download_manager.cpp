#include "device/downloads/download_manager.h"

#include <algorithm>

namespace downloads {

DownloadManager::DownloadManager(std::optional<std::vector<std::string>> kinds, Listing listing,
                                 std::shared_ptr<platform::WorkQueue> queue)
    : _kinds(std::move(kinds)), _listing(std::move(listing)), _queue(std::move(queue)) {}

void DownloadManager::addObserver(std::weak_ptr<VDDownloadManagerObserver> observer) {
    const std::lock_guard lock(_mutex);
    std::erase_if(_observers, [](const auto& known) { return known.expired(); });
    _observers.push_back(std::move(observer));
}

std::vector<std::shared_ptr<VDDownload>> DownloadManager::downloads() {
    std::vector<std::shared_ptr<VDDownload>> seen;
    for (DownloadRecord& record : _listing())
        if (seesKind(record.kind))
            seen.push_back(std::make_shared<Download>(std::move(record)));
    return seen;
}

bool DownloadManager::seesKind(std::string_view kind) const {
    return !_kinds || std::find(_kinds->begin(), _kinds->end(), kind) != _kinds->end();
}

void DownloadManager::note(DownloadChange change) {
    const std::lock_guard lock(_mutex);
    _batch.push_back(std::move(change));
    if (_batch.size() > 1)
        return;
    _queue->async([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock())
            self->tellObservers();
    });
}

void DownloadManager::tellObservers() {
    std::vector<DownloadChange> batch;
    std::vector<std::weak_ptr<VDDownloadManagerObserver>> observers;
    {
        const std::lock_guard lock(_mutex);
        batch.swap(_batch);
        observers = _observers;
    }
    std::vector<std::shared_ptr<VDDownload>> changed;
    bool listChanged = false;
    bool activeChanged = false;
    for (DownloadChange& change : batch) {
        if (change.changed)
            changed.push_back(std::move(change.changed));
        listChanged |= change.listChanged;
        activeChanged |= change.activeChanged;
    }
    using Operation = VDDownloadManagerObserverOperation;
    for (const auto& weakObserver : observers) {
        const auto observer = weakObserver.lock();
        if (!observer)
            continue;
        if (listChanged && observer->respondsTo(Operation::downloadsDidChange))
            observer->downloadManagerDownloadsDidChange(*this);
        if (activeChanged && observer->respondsTo(Operation::activeDownloadsDidChange))
            observer->downloadManagerActiveDownloadsDidChange(*this);
        if (!changed.empty() && observer->respondsTo(Operation::downloadStatesDidChange))
            observer->downloadManagerDownloadStatesDidChange(*this, changed);
    }
}

}  // namespace downloads
