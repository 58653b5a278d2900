// What the sync daemon provides: assets and store infos that keep what is set on them, the staging
// area, and a delegate.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/sync_daemon.h"
#include "tests/support/recorder.h"
#include "tests/support/virtual_scheduler.h"

namespace support {

// Keeps the calls of its setters, in order, as "setDSID" and so on.
class RecordingStoreInfo : public ORStoreInfo {
public:
    const Calls& calls() const { return _calls; }

    void setDSID(const platform::Value& accountID) override;
    void setVantorID(const platform::Value& accountName) override;
    void setFlavor(const platform::Value& flavor) override;
    void setOrbisID(const platform::Value& itemID) override;
    void setVeskaID(const platform::Value& cloudID) override;
    void setMatchStatus(const platform::Value& status) override;
    void setRedownloadStatus(const platform::Value& status) override;
    void setPodcastEpisodeGUID(const platform::Value& guid) override;

private:
    Calls _calls;
};

class RecordingAsset : public ORAsset {
public:
    RecordingAsset(Recorder& recorder, std::string identifier, bool isDownload)
        : _recorder(recorder), _identifier(std::move(identifier)), _isDownload(isDownload) {}

    // Set by the constructors of the daemon, not by the plug-in.
    std::string dataclass;
    std::optional<std::string> prettyName;
    std::optional<std::string> sourcePath;
    std::shared_ptr<RecordingStoreInfo> storeInfo() const { return _storeInfo; }
    std::optional<std::int64_t> storePID() const { return _storePID; }

    std::string identifier() const override { return _identifier; }
    bool isDownload() const override { return _isDownload; }
    std::optional<std::string> assetType() const override { return _assetType; }
    void setAssetType(const std::string& type) override { _assetType = type; }
    platform::Value variantOptions() const override { return _variantOptions; }
    void setVariantOptions(const platform::Value& options) override { _variantOptions = options; }
    bool isRestore() const override { return _isRestore; }
    void setIsRestore(bool isRestore) override { _isRestore = isRestore; }
    bool bypassStore() const override { return _bypassStore; }
    void setBypassStore(bool bypassStore) override { _bypassStore = bypassStore; }
    std::optional<std::string> path() const override { return _path; }
    void setPath(const std::string& path) override;
    void setStoreInfo(std::shared_ptr<ORStoreInfo> storeInfo) override;
    void setStorePID(std::int64_t persistentIdentifier) override {
        _storePID = persistentIdentifier;
    }
    std::string description() const override { return "<ORAsset " + _identifier + ">"; }

private:
    Recorder& _recorder;
    const std::string _identifier;
    const bool _isDownload;
    std::optional<std::string> _assetType;
    platform::Value _variantOptions;
    bool _isRestore = false;
    bool _bypassStore = false;
    std::optional<std::string> _path;
    std::shared_ptr<RecordingStoreInfo> _storeInfo;
    std::optional<std::int64_t> _storePID;
};

class RecordingStagehold : public ORStagehold {
public:
    explicit RecordingStagehold(Recorder& recorder) : _recorder(recorder) {}

    // By identifier.
    std::map<std::string, std::string> artworkPaths;
    std::map<std::string, std::string> kenningPaths;
    // What is answered without an identifier.
    std::optional<std::string> artworkDirectory;

    void processCompletedAsset(ORAsset& asset) override;
    std::optional<std::string> artworkPathForDataclass(
        const std::string& dataclass, const std::optional<std::string>& artworkIdentifier) override;
    std::optional<std::string> kenningPathForDataclass(
        const std::string& dataclass, const std::string& kenningIdentifier) override;

private:
    Recorder& _recorder;
};

class RecordingDaemon : public SyncDaemonServices {
public:
    RecordingDaemon(Recorder& recorder, VirtualScheduler& scheduler)
        : _recorder(recorder), _scheduler(scheduler), _stagehold(recorder) {}

    std::shared_ptr<ORAsset> makeDownloadAsset(std::string_view identifier,
                                               std::string_view dataclass,
                                               std::string_view prettyName) override;
    std::shared_ptr<ORAsset> makeUploadAsset(std::string_view identifier,
                                             std::string_view dataclass,
                                             std::string_view sourcePath,
                                             std::optional<std::string_view> prettyName) override;
    std::shared_ptr<ORAsset> makeAsset(std::string_view identifier, std::string_view dataclass,
                                       std::string_view prettyName) override;
    std::shared_ptr<ORStoreInfo> makeStoreInfo() override;
    std::shared_ptr<ORStreamWriter> makeStreamWriter(
        std::shared_ptr<platform::OutputStream> outputStream,
        std::shared_ptr<platform::WorkQueue> queue) override;
    std::shared_ptr<ORStreamReader> makeStreamReader(
        std::shared_ptr<platform::InputStream> inputStream,
        std::shared_ptr<platform::WorkQueue> queue) override;
    RecordingStagehold& stagehold() override { return _stagehold; }
    // Rounded up to blocks.
    std::uint64_t physicalSizeForLogicalSize(std::uint64_t logicalSize) override;
    std::uint64_t diskUsageForPath(const std::string& path) override;

    static constexpr std::uint64_t blockSize = 4096;
    std::map<std::string, std::uint64_t> diskUsages;  // by path, 0 for others

private:
    Recorder& _recorder;
    VirtualScheduler& _scheduler;
    RecordingStagehold _stagehold;
};

// Keeps the priorities that it was told of. Callable from any thread.
class RecordingDelegate : public ORSyncClientDelegate {
public:
    void syncClientHasChangesWithPriority(ORSyncClient& syncClient, std::int64_t priority) override;

    std::vector<std::int64_t> priorities() const;
    // The client that the last call named.
    ORSyncClient* lastClient() const;

private:
    mutable std::mutex _mutex;  // guards both below
    std::vector<std::int64_t> _priorities;
    ORSyncClient* _lastClient = nullptr;
};

}  // namespace support
