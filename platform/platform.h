// Purpose: the one object through which a bundle reaches every service, and the bundle's entry
//   point.
// Calling thread: install is called once, before any other use; everything else from any thread.
// Callback thread: none.
// Ownership: whoever installs the Platform keeps it alive until the process ends or it installs
//   another.
// Failure: using a service while no Platform is installed is a programming error and aborts.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/artwork_service.h"
#include "platform/cloud_client.h"
#include "platform/log.h"
#include "platform/media_library.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"
#include "platform/sync_daemon.h"

namespace platform {

class Platform {
public:
    // The one installed in this module.
    static Platform& current();
    // Null takes it away again.
    static void install(Platform* platform);

    virtual ~Platform() = default;
    virtual LogService& logService() = 0;
    virtual OperatingSystem& operatingSystem() = 0;
    virtual SyncDaemonServices& syncDaemon() = 0;
    virtual MediaLibraryFramework& mediaLibrary() = 0;
    virtual StoreDownloadServices& storeDownloads() = 0;
    virtual CloudServices& cloud() = 0;
    virtual PXVArtworkService& artworkService() = 0;
};

}  // namespace platform

// Grows with every change of any header here that an older bundle could not live with.
inline constexpr std::uint32_t ORBundleInterfaceVersion = 4;

// The roles that a bundle's object plays; all of them are the same object.
struct ORBundleClients {
    std::shared_ptr<ORClient> client;
    std::shared_ptr<ORSyncClient> syncClient;
    std::shared_ptr<ORAssetClient> assetClient;
};

enum class ORBundleStatus : std::int32_t { Opened = 0, WrongInterfaceVersion = 1, InitFailed = 2 };

// The one symbol that a bundle exports. `interfaceVersion` is the caller's
// ORBundleInterfaceVersion; a bundle built for another refuses and touches nothing. It installs
// `platform` and fills `clients`. Every call makes a new client. It does not throw.
using ORBundleOpenFunction = ORBundleStatus(std::uint32_t interfaceVersion,
                                            platform::Platform* platform, ORBundleClients* clients);
inline constexpr char ORBundleOpenSymbol[] = "ORBundleOpen";
