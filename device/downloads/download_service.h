// The store download framework of the device: what the owner asks to be downloaded comes, and
// managers show it.
//
// Any thread. Observers of all managers are called on one queue of the service's own.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "device/downloads/download_engine.h"
#include "device/downloads/file_manifest.h"
#include "platform/store_downloads.h"

namespace downloads {

struct DownloadRequest {
    std::string url;                // http, https or file
    std::string title;              // "": by the file's name
    std::int64_t libraryItem = 0;   // the track that the file is for; 0: the store item's own
    std::int64_t storeItem = 0;     // not 0
    std::int64_t storeAccount = 0;  // not 0
    bool isTemporary = false;       // not meant to stay
    std::string kind{VDDownloadKindMusic};
};

struct DownloadStatus {
    std::int64_t number = 0;  // the persistent identifier
    std::int64_t libraryItem = 0;
    std::string phase;  // a VDDownloadPhase
    std::string title;  // "" while neither the owner nor the source gave one
    std::string source;
    std::uint64_t bytes = 0;
    std::optional<std::uint64_t> total;  // absent while not known
    std::string error;  // why it failed or waits to be tried again; "" when neither
};

class DownloadService final : public StoreDownloadServices {
public:
    // Opens the downloads, or begins with none. Throws when there can be no downloads at all
    // (std::exception).
    explicit DownloadService(const DownloadEngine::Configuration& configuration);
    // Begins to bring what waits; requests that come before only wait. Once.
    void start();
    // Stops what is under way; a later service goes on with it.
    ~DownloadService() override;

    // StoreDownloadServices. Options of another maker, and none at all, stand for every kind.
    std::shared_ptr<VDDownloadManagerOptions> makeManagerOptions() override;
    std::shared_ptr<VDDownloadManager> makeManager(
        std::shared_ptr<VDDownloadManagerOptions> options) override;
    std::shared_ptr<VDDownloadFileManifest> makeFileManifest(std::int64_t manifestType) override;

    // The number of the download, which waits or is under way. One of the same store item or of
    // the same address is the same download: its number is answered, and it is tried again when it
    // had failed. Absent with plain words: EINVAL for a request that cannot be carried out, EEXIST
    // when the file is on the device already.
    std::optional<std::int64_t> request(const DownloadRequest& request,
                                        platform::OptionalError* error);
    // A restore has taken entries out of the library that were made for downloads: those begin
    // anew, with an entry of their own. Before start(), or a download might end for an entry that
    // is not there any more.
    void renewItems();
    // Whether something is under way, or waits to be.
    bool isBusy() const;
    // Oldest first, those that failed too.
    std::vector<DownloadStatus> list();
    // Its bytes go. ENOENT when there is no such download (any more), EBUSY while it is installed.
    platform::OptionalError cancel(std::int64_t number);

private:
    std::optional<std::int64_t> requestHoldingMutex(const DownloadRequest& request,
                                                    platform::OptionalError* error);
    std::int64_t merge(const DownloadRecord& record, const DownloadRequest& request);

    DownloadInstaller& _installer;
    const std::shared_ptr<DownloadList> _list;  // managers share it
    const std::shared_ptr<platform::WorkQueue> _manifestQueue;
    const std::shared_ptr<FileManifest> _manifest;  // bundles' manifests share it
    std::mutex _requesting;  // held while it is found out whether a request is a new one
    DownloadEngine _engine;
};

}  // namespace downloads
