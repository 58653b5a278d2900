// Takes what was downloaded into the embedded library: the file under "Purchases", named after its
// track, and the track with the owner's claim.
#pragma once

#include <mutex>

#include "device/downloads/download_installer.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/library.h"
#include "device/system/rooted_file_system.h"

namespace orlith {

class PurchaseInstaller final : public downloads::DownloadInstaller {
public:
    // All of it outlives this.
    PurchaseInstaller(korvane::Library& library, korvane::ActivityLock& activities,
                      device::RootedFileSystem& files)
        : _library(library), _activities(activities), _files(files) {}

    std::optional<downloads::PreparedItem> prepare(const downloads::DownloadItem& item,
                                                   platform::OptionalError* error) override;
    platform::OptionalError install(const downloads::DownloadItem& item,
                                    const std::string& stagedPath) override;
    void abandon(std::int64_t libraryItem) override;
    bool sourceIsGone(std::int64_t libraryItem) override;
    std::optional<std::vector<downloads::FileClass>> settleFiles(
        const std::vector<std::string>& names, platform::OptionalError* error) override;

private:
    platform::OptionalError checkContent(const std::string& stagedPath);
    platform::OptionalError moveIntoPlace(const std::string& stagedPath, const std::string& path);

    korvane::Library& _library;
    korvane::ActivityLock& _activities;
    device::RootedFileSystem& _files;
    // Held from a file's move to its record: what is found in between is no leftover.
    std::mutex _filing;
};

}  // namespace orlith
