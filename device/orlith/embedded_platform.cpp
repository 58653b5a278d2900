#include "device/orlith/embedded_platform.h"

#include <cerrno>
#include <chrono>
#include <exception>

#include "device/artwork/artwork_service.h"
#include "device/cloud/cloud_service.h"
#include "device/downloads/download_service.h"
#include "device/korvane/activity_lock.h"
#include "device/korvane/background_tasks.h"
#include "device/korvane/database_health.h"
#include "device/korvane/framework.h"
#include "device/korvane/import/import_service.h"
#include "device/korvane/save/host_saver.h"
#include "device/orlith/embedded_library.h"
#include "device/orlith/embedded_peers.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/picture_adapters.h"
#include "device/orlith/purchase_installer.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

// How long jobs may take to end when the daemon leaves.
constexpr std::chrono::seconds ShutDownDeadline{10};
constexpr std::string_view CloudKenningProperty = "KVPelorinHasCloudKenningData";

bool isDamage(const Error& error) {
    return error.domain == korvane::LibraryErrorDomain &&
           error.code == korvane::LibraryErrorDamaged;
}

// A library that was set aside is replaced by an empty one: the next sync is a first one.
std::shared_ptr<korvane::Library> openLibrary(const korvane::Configuration& configuration,
                                              Notices& notices, OptionalError& error) {
    std::shared_ptr<korvane::Library> library = korvane::Library::open(configuration, &error);
    if (library || !error || !isDamage(*error))
        return library;
    const std::string damage = error->text();
    error = korvane::setDatabaseAside(configuration.files, configuration.databasePath,
                                      configuration.system.absoluteTime());
    if (error)
        return nullptr;
    library = korvane::Library::open(configuration, &error);
    if (library)
        notices.add(
            "The device's library was damaged (" + damage +
            ") and has been set aside; nothing was deleted. The next sync fills a new one.");
    return library;
}

}  // namespace

struct EmbeddedPlatform::Services {
    Services(const std::string& root, platform::LogService& logService)
        : log(logService),
          system(root),
          pluginSystem(system),
          daemon(system.fileSystem(), pluginSystem),
          frames(system.fileSystem(), frameGrabberProgram()),
          pictures(system.fileSystem()) {}

    void makeLibrary(std::shared_ptr<korvane::Library> opened) {
        auto importService = std::make_unique<korvane::ImportService>(opened);
        tasks.emplace(*opened, activities, pluginSystem.namedNotifications(),
                      system.makeSerialQueue("orlith.background"));
        access.emplace(*opened, *importService, *tasks, activities, system.fileSystem());
        peers.emplace(*opened, *importService);
        framework.emplace(std::move(opened),
                          korvane::FrameworkParts{std::move(importService),
                                                  std::make_unique<korvane::HostSaver>()});
    }
    void makeOthers(Notices& notices) {
        purchases.emplace(
            framework->library(), activities, system.fileSystem(), [&](const std::string& title) {
                notices.add("\"" + title +
                            "\" could not be restored: the address that it came from has it no "
                            "more.");
            });
        downloads::EngineSettings settings;
        settings.staging.reservedSpace = ReservedSpace;
        downloads.emplace(downloads::DownloadEngine::Configuration{system.fileSystem(), log, system,
                                                                   *purchases, settings});
        downloadManager = downloads->makeManager(nullptr);
        cloud.emplace(system.fileSystem(), log, [this](bool hasCloudKenningData) {
            return framework->library().setValueForDatabaseProperty(hasCloudKenningData,
                                                                    CloudKenningProperty);
        });
        artwork.emplace(system.fileSystem(), system.globalQueue(platform::QueuePriority::Default));
    }

    platform::LogService& log;
    device::SystemServices system;
    DaemonOperatingSystem pluginSystem;
    DaemonServices daemon;
    FilmFrames frames;
    PictureInspector pictures;
    std::optional<korvane::Framework> framework;
    korvane::ActivityLock activities;
    std::optional<korvane::BackgroundTasks> tasks;
    std::optional<EmbeddedLibrary> access;
    std::optional<EmbeddedPeers> peers;
    std::optional<PurchaseInstaller> purchases;
    std::optional<downloads::DownloadService> downloads;
    std::shared_ptr<VDDownloadManager> downloadManager;
    std::optional<cloud::CloudService> cloud;
    std::optional<artwork::ArtworkService> artwork;
};

std::unique_ptr<EmbeddedPlatform> EmbeddedPlatform::open(const std::string& root,
                                                         platform::LogService& log,
                                                         Notices& notices, OptionalError& error) {
    try {
        auto services = std::make_unique<Services>(root, log);
        auto library = openLibrary({services->system.fileSystem(), services->system, log,
                                    services->frames, services->pictures},
                                   notices, error);
        if (!library)
            return nullptr;
        services->makeLibrary(std::move(library));
        services->makeOthers(notices);
        return std::unique_ptr<EmbeddedPlatform>(new EmbeddedPlatform(std::move(services)));
    } catch (const std::exception& failure) {
        error = Error(platform::POSIXErrorDomain, EIO, failure.what());
        return nullptr;
    }
}

EmbeddedPlatform::EmbeddedPlatform(std::unique_ptr<Services> services)
    : _services(std::move(services)) {}
EmbeddedPlatform::~EmbeddedPlatform() = default;

platform::LogService& EmbeddedPlatform::logService() {
    return _services->log;
}
DaemonOperatingSystem& EmbeddedPlatform::operatingSystem() {
    return _services->pluginSystem;
}
DaemonServices& EmbeddedPlatform::syncDaemon() {
    return _services->daemon;
}
MediaLibraryFramework& EmbeddedPlatform::mediaLibrary() {
    return *_services->framework;
}
downloads::DownloadService& EmbeddedPlatform::storeDownloads() {
    return *_services->downloads;
}
cloud::CloudService& EmbeddedPlatform::cloud() {
    return *_services->cloud;
}
PXVArtworkService& EmbeddedPlatform::artworkService() {
    return *_services->artwork;
}
korvane::Library& EmbeddedPlatform::library() {
    return _services->framework->library();
}
korvane::ActivityLock& EmbeddedPlatform::activities() {
    return _services->activities;
}
LibraryAccess& EmbeddedPlatform::libraryAccess() {
    return *_services->access;
}
PeerLibrary& EmbeddedPlatform::peers() {
    return *_services->peers;
}
std::shared_ptr<VDDownloadManager> EmbeddedPlatform::downloadManager() {
    return _services->downloadManager;
}

void EmbeddedPlatform::startBackgroundTasks() {
    _services->tasks->schedule();
}

bool EmbeddedPlatform::shutDown() {
    _services->peers.reset();
    _services->access.reset();
    _services->tasks.reset();
    return _services->system.shutdown(ShutDownDeadline);
}

}  // namespace orlith
