// Has the files fetched again that a restore left behind and whose address is known: a few at a
// time, so that the list of downloads stays short however many there are.
//
// Any thread. Shared, for the download manager tells it of changes; the jobs keep it.
#pragma once

#include <memory>
#include <mutex>

#include "device/downloads/download_service.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"

namespace korvane {
class Library;
}

namespace orlith {

class PurchaseFetcher final : public VDDownloadManagerObserver,
                              public std::enable_shared_from_this<PurchaseFetcher> {
public:
    // All of it outlives the fetcher's jobs, which end with stop(); `queue` is serial.
    PurchaseFetcher(korvane::Library& library, downloads::DownloadService& downloads,
                    std::shared_ptr<platform::WorkQueue> queue)
        : _library(library), _downloads(downloads), _queue(std::move(queue)) {}

    // Begins, or begins anew with what failed for the moment.
    void start();
    // Afterwards no job does anything.
    void stop();

    // VDDownloadManagerObserver
    bool respondsTo(VDDownloadManagerObserverOperation operation) const override {
        return operation == VDDownloadManagerObserverOperation::downloadsDidChange;
    }
    void downloadManagerDownloadsDidChange(VDDownloadManager& manager) override;

private:
    void fill(bool withFailed);

    korvane::Library& _library;
    downloads::DownloadService& _downloads;
    const std::shared_ptr<platform::WorkQueue> _queue;

    std::mutex _mutex;  // held by a job that works; protects what follows
    bool _isStopped = false;
    bool _mayBeMore = false;  // the library may have more than were asked for
};

}  // namespace orlith
