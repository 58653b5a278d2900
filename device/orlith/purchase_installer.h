// Takes what was downloaded into the embedded library: the file under "Purchases", named after its
// track, and the track with the owner's claim.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "device/downloads/download_installer.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/library.h"
#include "device/system/rooted_file_system.h"

namespace orlith {

class PurchaseInstaller final : public downloads::DownloadInstaller {
public:
    // All of it outlives this. `gaveUp` is called on any thread with the title of a track whose
    // file a restore has lost for good.
    PurchaseInstaller(korvane::Library& library, korvane::ActivityLock& activities,
                      device::RootedFileSystem& files,
                      std::function<void(const std::string& title)> gaveUp = {})
        : _library(library), _activities(activities), _files(files), _gaveUp(std::move(gaveUp)) {}

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
    const std::function<void(const std::string&)> _gaveUp;
    // Held from a file's move to its record: what is found in between is no leftover.
    std::mutex _filing;
};

}  // namespace orlith
