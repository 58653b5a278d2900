// The store download framework, the cloud client and the artwork service.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/artwork_service.h"
#include "platform/cloud_client.h"
#include "platform/store_downloads.h"
#include "tests/support/recorder.h"
#include "tests/support/virtual_scheduler.h"

namespace support {

class ScriptedDownload : public VDDownload {
public:
    ScriptedDownload(std::int64_t persistentIdentifier, platform::Value libraryItemIdentifier)
        : _persistentIdentifier(persistentIdentifier) {
        properties[std::string(VDDownloadPropertyLibraryItemIdentifier)] =
            std::move(libraryItemIdentifier);
    }

    std::map<std::string, platform::Value, std::less<>> properties;
    std::string phase{VDDownloadPhaseDownloading};

    platform::Value valueForProperty(std::string_view property) const override {
        const auto found = properties.find(property);
        return found == properties.end() ? platform::Value() : found->second;
    }
    std::int64_t persistentIdentifier() const override { return _persistentIdentifier; }
    std::string downloadPhaseIdentifier() const override { return phase; }
    std::string description() const override {
        return "<VDDownload " + std::to_string(_persistentIdentifier) + ">";
    }

private:
    const std::int64_t _persistentIdentifier;
};

class RecordingDownloadManager : public VDDownloadManager {
public:
    explicit RecordingDownloadManager(Recorder& recorder) : _recorder(recorder) {}

    std::vector<std::shared_ptr<VDDownload>> scriptedDownloads;
    const std::vector<std::weak_ptr<VDDownloadManagerObserver>>& observers() const {
        return _observers;
    }

    void addObserver(std::weak_ptr<VDDownloadManagerObserver> observer) override;
    std::vector<std::shared_ptr<VDDownload>> downloads() override;

private:
    Recorder& _recorder;
    std::vector<std::weak_ptr<VDDownloadManagerObserver>> _observers;
};

class RecordingStoreDownloads : public StoreDownloadServices {
public:
    RecordingStoreDownloads(Recorder& recorder, VirtualScheduler& scheduler)
        : _recorder(recorder), _scheduler(scheduler) {}

    // As when memory runs out: a std::runtime_error.
    bool makeManagerThrows = false;
    bool makeFileManifestThrows = false;
    // What every manifest answers, after how long; a fault is an answer without paths.
    std::optional<std::vector<std::string>> manifestPaths;
    platform::Nanoseconds manifestTime = 0;
    // Run on the manifest's thread just before it answers that it is rebuilt.
    std::function<void()> whileRebuilding;
    // The one made last.
    std::shared_ptr<RecordingDownloadManager> lastManager() const { return _lastManager.lock(); }

    std::shared_ptr<VDDownloadManagerOptions> makeManagerOptions() override;
    std::shared_ptr<VDDownloadManager> makeManager(
        std::shared_ptr<VDDownloadManagerOptions> options) override;
    std::shared_ptr<VDDownloadFileManifest> makeFileManifest(std::int64_t manifestType) override;

private:
    class FileManifest;

    Recorder& _recorder;
    VirtualScheduler& _scheduler;
    std::weak_ptr<RecordingDownloadManager> _lastManager;
};

class RecordingCloud : public CloudServices {
public:
    explicit RecordingCloud(Recorder& recorder) : _recorder(recorder) {}

    bool isAuthenticated = false;
    // How long a client takes to answer.
    platform::Nanoseconds answerTime = 0;
    // As when memory runs out: a std::runtime_error.
    bool makeClientThrows = false;

    std::shared_ptr<KLCloudClient> makeClient() override;

private:
    Recorder& _recorder;
};

// Writes nothing by itself; answers after the call has returned.
class RecordingArtworkService : public PXVArtworkService {
public:
    RecordingArtworkService(Recorder& recorder, VirtualScheduler& scheduler)
        : _recorder(recorder), _scheduler(scheduler) {}

    platform::OptionalError error;
    // Run on the service's thread just before it answers a request without an error.
    std::function<void(const PXVArtworkServiceResizeRequest&)> whileResizing;

    void sendRequest(
        const PXVArtworkServiceResizeRequest& request,
        std::function<void(const platform::OptionalError&)> completionHandler) override;

private:
    Recorder& _recorder;
    VirtualScheduler& _scheduler;
};

}  // namespace support
