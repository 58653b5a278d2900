// The manifest of what downloads put into the directory of purchases: which file is of which class.
// It is kept as a property list and made anew whenever that does not tell of exactly the files that
// are there: when it is missing, damaged, of another version, or names what no file may be called.
//
// Any thread. Answers come on the manifest's own queue; a question keeps the manifest.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/downloads/download_installer.h"
#include "platform/log.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"

namespace device {
class RootedFileSystem;
}

namespace downloads {

inline constexpr char PurchasesDirectory[] = "/var/mobile/Media/Purchases";
inline constexpr char ManifestPath[] = "/var/mobile/Media/Downloads/Manifest.plist";

class FileManifest : public std::enable_shared_from_this<FileManifest> {
public:
    // `queue` is serial. File system, log and installer outlive its jobs.
    FileManifest(device::RootedFileSystem& files, platform::LogService& log,
                 DownloadInstaller& installer, std::shared_ptr<platform::WorkQueue> queue);

    // As the platform's operations. Absent when the library cannot be asked.
    void paths(FileClass fileClass, VDDownloadFileManifest::PathsHandler completion);
    void rebuild(std::function<void()> completion);
    // What is kept is no longer true, though the names may stay: a file is about to be installed.
    void forget();

private:
    using Classes = std::map<std::string, FileClass>;  // by file name

    std::vector<std::string> presentNames();
    std::optional<Classes> kept();
    std::optional<Classes> rebuilt();
    void keep(const Classes& classes);
    void log(platform::LogLevel level, std::string_view operation, std::string_view text) const;

    device::RootedFileSystem& _files;
    platform::LogService& _log;
    DownloadInstaller& _installer;
    const std::shared_ptr<platform::WorkQueue> _queue;
};

// What a bundle gets for a type: 0 the one of media files, any other one without files.
std::shared_ptr<VDDownloadFileManifest> manifestOfType(std::int64_t manifestType,
                                                       std::shared_ptr<FileManifest> mediaFiles,
                                                       std::shared_ptr<platform::WorkQueue> queue);

}  // namespace downloads
