// When each download last moved, as the download manager tells: a request for a file that is being
// fetched is waited for as long as it does.
//
// Any thread.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/store_downloads.h"

namespace orlith {

class DownloadProgress final : public VDDownloadManagerObserver {
public:
    using Clock = std::chrono::steady_clock;

    // VDDownloadManagerObserver
    bool respondsTo(VDDownloadManagerObserverOperation operation) const override {
        return operation == VDDownloadManagerObserverOperation::downloadStatesDidChange;
    }
    void downloadManagerDownloadStatesDidChange(
        VDDownloadManager& manager,
        const std::vector<std::shared_ptr<VDDownload>>& downloads) override;

    // Of the download of a library item; absent when none was heard of since the item was watched.
    std::optional<Clock::time_point> lastMove(const std::string& libraryItem) const;
    // Only what somebody waits for is remembered.
    void watch(const std::string& libraryItem);
    void forget(const std::string& libraryItem);

private:
    mutable std::mutex _mutex;
    // By library item; guarded by _mutex.
    std::map<std::string, std::optional<Clock::time_point>> _watched;
};

}  // namespace orlith
