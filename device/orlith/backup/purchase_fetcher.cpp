#include "device/orlith/backup/purchase_fetcher.h"

#include <exception>
#include <set>

#include "device/korvane/purchases.h"

namespace orlith {
namespace {

// In the list of downloads at a time; it is filled up when there are only few left.
constexpr std::size_t MostPending = 100;
constexpr std::size_t FewPending = 50;

downloads::DownloadRequest requestOf(const korvane::LostFile& file) {
    downloads::DownloadRequest request;
    request.url = file.source;
    request.libraryItem = file.track;
    request.storeItem = file.storeItem;
    request.storeAccount = file.storeAccount;
    request.isTemporary = file.isTemporary;
    request.kind = file.kind;
    return request;
}

}  // namespace

void PurchaseFetcher::start() {
    _queue->async([self = shared_from_this()] { self->fill(true); });
}

void PurchaseFetcher::stop() {
    const std::lock_guard lock(_mutex);
    _isStopped = true;
}

void PurchaseFetcher::downloadManagerDownloadsDidChange(VDDownloadManager&) {
    _queue->async([self = shared_from_this()] { self->fill(false); });
}

void PurchaseFetcher::fill(bool withFailed) {
    const std::lock_guard lock(_mutex);
    if (_isStopped || (!withFailed && !_mayBeMore))
        return;
    std::size_t pending = 0;
    std::set<std::int64_t> known;
    for (const downloads::DownloadStatus& status : _downloads.list()) {
        const bool hasFailed = status.phase == VDDownloadPhaseFailed;
        pending += hasFailed ? 0 : 1;
        if (!hasFailed || !withFailed)
            known.insert(status.libraryItem);
    }
    if (!withFailed && pending > FewPending)
        return;
    _mayBeMore = false;
    for (const korvane::LostFile& file : korvane::filesToFetchAgain(_library)) {
        if (known.contains(file.track))
            continue;
        _mayBeMore = true;
        if (pending >= MostPending)
            break;
        if (_downloads.request(requestOf(file), nullptr))
            ++pending;
    }
}

}  // namespace orlith
