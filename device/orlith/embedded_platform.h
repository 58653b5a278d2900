// The embedded device's services, assembled: what a bundle reaches through the Platform, and what
// the daemon itself needs of them.
//
// Made and released on the daemon's main thread; the services are used from any.
#pragma once

#include <memory>
#include <string>

#include "device/cloud/cloud_service.h"
#include "device/downloads/download_service.h"
#include "device/orlith/daemon_operating_system.h"
#include "device/orlith/daemon_services.h"
#include "device/orlith/library_access.h"
#include "device/orlith/mirror/peer_library.h"
#include "device/orlith/notices.h"
#include "platform/platform.h"

namespace korvane {
class ActivityLock;
class Library;
}  // namespace korvane

namespace orlith {

class EmbeddedPlatform final : public platform::Platform {
public:
    // Opens the device in a directory of the real disk. A damaged library is set aside, which
    // becomes a notice; media files stay where they are. Null, with an error, when the device
    // cannot be opened. `log` and `notices` outlive the platform.
    static std::unique_ptr<EmbeddedPlatform> open(const std::string& root,
                                                  platform::LogService& log, Notices& notices,
                                                  platform::OptionalError& error);
    ~EmbeddedPlatform() override;

    // platform::Platform
    platform::LogService& logService() override;
    DaemonOperatingSystem& operatingSystem() override;
    DaemonServices& syncDaemon() override;
    MediaLibraryFramework& mediaLibrary() override;
    downloads::DownloadService& storeDownloads() override;
    cloud::CloudService& cloud() override;
    PXVArtworkService& artworkService() override;

    korvane::Library& library();
    korvane::ActivityLock& activities();
    LibraryAccess& libraryAccess();
    PeerLibrary& peers();
    std::shared_ptr<VDDownloadManager> downloadManager();

    // Lets the library's background tasks run, when nobody holds them; for the first time once
    // recovery has put back what interrupted sessions left.
    void startBackgroundTasks();

    // Ends the services' jobs. False when some did not end in time; the process should then end
    // without releasing anything.
    bool shutDown();

private:
    struct Services;
    explicit EmbeddedPlatform(std::unique_ptr<Services> services);

    std::unique_ptr<Services> _services;
};

}  // namespace orlith
