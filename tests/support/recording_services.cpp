#include "tests/support/recording_services.h"

#include <stdexcept>

namespace support {
namespace {

platform::Array arrayOf(const std::vector<std::string>& strings) {
    return {strings.begin(), strings.end()};
}

class Options : public VDDownloadManagerOptions {
public:
    explicit Options(Recorder& recorder) : _recorder(recorder) {}
    void setDownloadKinds(const std::vector<std::string>& kinds) override {
        _recorder.record("VDDownloadManagerOptions.setDownloadKinds", {arrayOf(kinds)});
    }
    void setPrefetchedDownloadProperties(const std::vector<std::string>& properties) override {
        _recorder.record("VDDownloadManagerOptions.setPrefetchedDownloadProperties",
                         {arrayOf(properties)});
    }

private:
    Recorder& _recorder;
};

class CloudClient : public KLCloudClient {
public:
    CloudClient(Recorder& recorder, bool isAuthenticated, platform::Nanoseconds answerTime)
        : _recorder(recorder), _isAuthenticated(isAuthenticated), _answerTime(answerTime) {}

    void isAuthenticatedWithQueue(std::shared_ptr<platform::WorkQueue> queue,
                                  std::function<void(bool)> completionHandler) override {
        const bool isFault = _recorder.fails("KLCloudClient.isAuthenticated", {queue->label()});
        const auto answer = [answer = _isAuthenticated && !isFault,
                             completionHandler = std::move(completionHandler)] {
            completionHandler(answer);
        };
        if (_answerTime == 0)
            queue->async(answer);
        else
            queue->asyncAfter(_answerTime, answer);
    }

private:
    Recorder& _recorder;
    const bool _isAuthenticated;
    const platform::Nanoseconds _answerTime;
};

}  // namespace

void RecordingDownloadManager::addObserver(std::weak_ptr<VDDownloadManagerObserver> observer) {
    _recorder.record("VDDownloadManager.addObserver");
    _observers.push_back(std::move(observer));
}

std::vector<std::shared_ptr<VDDownload>> RecordingDownloadManager::downloads() {
    _recorder.record("VDDownloadManager.downloads");
    return scriptedDownloads;
}

std::shared_ptr<VDDownloadManagerOptions> RecordingStoreDownloads::makeManagerOptions() {
    return std::make_shared<Options>(_recorder);
}

std::shared_ptr<VDDownloadManager> RecordingStoreDownloads::makeManager(
    std::shared_ptr<VDDownloadManagerOptions>) {
    _recorder.record("VDDownloadManager.initWithManagerOptions");
    if (makeManagerThrows)
        throw std::runtime_error("no download manager");
    auto manager = std::make_shared<RecordingDownloadManager>(_recorder);
    _lastManager = manager;
    return manager;
}

// Answers from a thread of its own, after the call has returned and whether or not it still lives.
class RecordingStoreDownloads::FileManifest : public VDDownloadFileManifest {
public:
    explicit FileManifest(RecordingStoreDownloads& services) : _services(services) {}

    void getPathsForFilesWithClass(std::int64_t fileClass, PathsHandler completionBlock) override {
        const bool isFault =
            _services._recorder.fails("VDDownloadFileManifest.getPaths", {fileClass});
        answer([&services = _services, isFault, completionBlock = std::move(completionBlock)] {
            completionBlock(isFault ? std::nullopt : services.manifestPaths);
        });
    }
    void rebuildManifestWithCompletionBlock(std::function<void()> completionBlock) override {
        _services._recorder.record("VDDownloadFileManifest.rebuild");
        answer([&services = _services, completionBlock = std::move(completionBlock)] {
            if (services.whileRebuilding)
                services.whileRebuilding();
            completionBlock();
        });
    }

private:
    void answer(platform::Job job) {
        _services._scheduler.post(_services.manifestTime, std::move(job));
    }

    RecordingStoreDownloads& _services;
};

std::shared_ptr<VDDownloadFileManifest> RecordingStoreDownloads::makeFileManifest(
    std::int64_t manifestType) {
    _recorder.record("VDDownloadFileManifest.initWithManifestType", {manifestType});
    if (makeFileManifestThrows)
        throw std::runtime_error("no file manifest");
    return std::make_shared<FileManifest>(*this);
}

std::shared_ptr<KLCloudClient> RecordingCloud::makeClient() {
    _recorder.record("KLCloudClient.make");
    if (makeClientThrows)
        throw std::runtime_error("no cloud client");
    return std::make_shared<CloudClient>(_recorder, isAuthenticated, answerTime);
}

void RecordingArtworkService::sendRequest(
    const PXVArtworkServiceResizeRequest& request,
    std::function<void(const platform::OptionalError&)> completionHandler) {
    platform::Array destinations;
    for (const auto& destination : request.destinations)
        destinations.emplace_back(
            platform::Array{destination.width, destination.height, destination.path});
    const bool isFault =
        _recorder.fails("PXVArtworkService.sendRequest", {request.source, destinations});
    _scheduler.post(0, [this, request, isFault, completionHandler = std::move(completionHandler)] {
        const platform::OptionalError answer =
            isFault ? platform::Error("PXVArtworkService", 1) : platform::OptionalError(error);
        if (!answer && whileResizing)
            whileResizing(request);
        completionHandler(answer);
    });
}

}  // namespace support
