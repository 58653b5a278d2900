// What the daemon itself gives to plug-ins: its records, stream pumps and the staging area.
#pragma once

#include <mutex>

#include "device/orlith/asset.h"
#include "device/orlith/mirror/stream_pumps.h"
#include "device/orlith/staging_area.h"
#include "platform/sync_daemon.h"

namespace orlith {

class DaemonServices final : public SyncDaemonServices {
public:
    // Both outlive this.
    DaemonServices(device::RootedFileSystem& files, platform::OperatingSystem& operatingSystem)
        : _files(files), _operatingSystem(operatingSystem), _staging(files) {}

    std::shared_ptr<ORAsset> makeDownloadAsset(std::string_view identifier,
                                               std::string_view dataclass,
                                               std::string_view prettyName) override {
        return Asset::make(Asset::Direction::Download, identifier, dataclass, prettyName);
    }
    std::shared_ptr<ORAsset> makeUploadAsset(std::string_view identifier,
                                             std::string_view dataclass,
                                             std::string_view sourcePath,
                                             std::optional<std::string_view> prettyName) override {
        const auto asset = Asset::make(Asset::Direction::Upload, identifier, dataclass, prettyName);
        asset->setSourcePath(sourcePath);
        return asset;
    }
    std::shared_ptr<ORAsset> makeAsset(std::string_view identifier, std::string_view dataclass,
                                       std::string_view prettyName) override {
        return Asset::make(Asset::Direction::Pulled, identifier, dataclass, prettyName);
    }
    std::shared_ptr<ORStoreInfo> makeStoreInfo() override { return std::make_shared<StoreInfo>(); }
    std::shared_ptr<ORStreamWriter> makeStreamWriter(
        std::shared_ptr<platform::OutputStream> outputStream,
        std::shared_ptr<platform::WorkQueue> queue) override {
        return std::make_shared<StreamWriter>(std::move(outputStream), queueOr(std::move(queue)));
    }
    std::shared_ptr<ORStreamReader> makeStreamReader(
        std::shared_ptr<platform::InputStream> inputStream,
        std::shared_ptr<platform::WorkQueue> queue) override {
        return std::make_shared<StreamReader>(std::move(inputStream), queueOr(std::move(queue)));
    }
    StagingArea& stagehold() override { return _staging; }
    // In whole blocks of the file system that holds the device's media.
    std::uint64_t physicalSizeForLogicalSize(std::uint64_t logicalSize) override;
    std::uint64_t diskUsageForPath(const std::string& path) override {
        return _files.diskUsage(path);
    }

private:
    std::shared_ptr<platform::WorkQueue> queueOr(std::shared_ptr<platform::WorkQueue> queue) {
        return queue ? std::move(queue) : _operatingSystem.makeSerialQueue("orlith.stream");
    }

    device::RootedFileSystem& _files;
    platform::OperatingSystem& _operatingSystem;
    std::once_flag _blockSizeIsKnown;
    std::uint64_t _blockSize = 0;  // bytes; set once
    StagingArea _staging;
};

}  // namespace orlith
