// What the daemon itself gives to plug-ins: its records and the staging area.
#pragma once

#include "device/orlith/asset.h"
#include "device/orlith/staging_area.h"
#include "platform/sync_daemon.h"

namespace orlith {

class DaemonServices final : public SyncDaemonServices {
public:
    explicit DaemonServices(device::RootedFileSystem& files) : _staging(files) {}

    std::shared_ptr<ORAsset> makeDownloadAsset(const std::string& identifier,
                                               const std::string& dataclass,
                                               const std::string& prettyName) override {
        return std::make_shared<Asset>(Asset::Direction::Download, identifier, dataclass,
                                       std::string(), prettyName);
    }
    std::shared_ptr<ORAsset> makeUploadAsset(
        const std::string& identifier, const std::string& dataclass, const std::string& sourcePath,
        const std::optional<std::string>& prettyName) override {
        return std::make_shared<Asset>(Asset::Direction::Upload, identifier, dataclass, sourcePath,
                                       prettyName);
    }
    std::shared_ptr<ORStoreInfo> makeStoreInfo() override { return std::make_shared<StoreInfo>(); }
    StagingArea& stagehold() override { return _staging; }

private:
    StagingArea _staging;
};

}  // namespace orlith
