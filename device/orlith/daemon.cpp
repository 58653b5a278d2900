#include "device/orlith/daemon.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>

#include "common/unique_fd.h"
#include "device/orlith/backup/backup_creation.h"
#include "device/orlith/backup/purchase_fetcher.h"
#include "device/orlith/backup/restore_finish.h"
#include "device/orlith/backup/restore_switch.h"
#include "device/orlith/bundle.h"
#include "device/orlith/daemon_calls.h"
#include "device/orlith/daemon_log.h"
#include "device/orlith/device_lock.h"
#include "device/orlith/embedded_platform.h"
#include "device/orlith/recovery.h"
#include "device/orlith/server.h"
#include "device/orlith/service_manager.h"
#include "device/system/log_service.h"
#include "link/address.h"
#include "link/start_daemon.h"

namespace orlith {
namespace {

using platform::LogLevel;
using platform::OptionalError;
namespace fs = std::filesystem;

// How long calls may take to end once the daemon was asked to.
constexpr std::chrono::milliseconds StopGrace{3000};

// Thrown when the daemon cannot start; the text is for people.
class StartupFailure : public std::runtime_error {
public:
    StartupFailure(int exitCode, const std::string& text)
        : std::runtime_error(text), _exitCode(exitCode) {}
    int exitCode() const { return _exitCode; }

private:
    int _exitCode;
};

[[noreturn]] void giveUp(int exitCode, const platform::Error& error) {
    throw StartupFailure(exitCode, error.text().empty() ? error.description() : error.text());
}

// The signals that end the daemon, as a descriptor; every thread made later has them blocked.
common::UniqueFd takeSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGHUP);
    ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    return common::UniqueFd(::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
}

// From here on another signal ends the process at once.
void releaseSignals(const common::UniqueFd& signals) {
    signalfd_siginfo information{};
    while (::read(signals.get(), &information, sizeof information) > 0) {
    }
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

std::string openRoot(const std::string& root) {
    std::error_code status;
    fs::create_directories(fs::path(root) / "var" / "run", status);
    if (status)
        throw StartupFailure(
            ExitConfiguration,
            fmt::format("cannot use {} as a device directory: {}", root, status.message()));
    return fs::canonical(root, status).string();
}

void lockDevice(DeviceLock& lock, const std::string& root) {
    if (const OptionalError error = lock.acquire(root + "/var/run/orlithd.lock"))
        giveUp(error->code == EWOULDBLOCK ? ExitBusy : ExitConfiguration, *error);
}

common::UniqueFd listen(const DaemonOptions& options, const std::string& root) {
    if (common::UniqueFd given = socketFromServiceManager())
        return given;
    OptionalError error;
    common::UniqueFd listener = link::listenOnSocket(
        options.socketPath.empty() ? link::socketPathOfDevice(root) : options.socketPath, &error);
    if (!listener)
        giveUp(ExitConfiguration, *error);
    return listener;
}

// The device and the plug-in's clients on it.
struct Device {
    Notices notices;
    std::unique_ptr<EmbeddedPlatform> platform;
    ORBundleClients clients;
    SessionSlot slot;
    std::optional<FinishedRestore> restore;
    std::shared_ptr<PurchaseFetcher> purchases;
};

OptionalError putRestoreInPlace(const std::string& root) {
    device::RootedFileSystem files(root);
    removeBackupLeftovers(files);
    return switchToRestored(files);
}

// What a restore left to be done, and the purchases that it could not bring.
void finishRestoring(Device& device, platform::LogService& log) {
    EmbeddedPlatform& platform = *device.platform;
    device.restore = finishRestore({*device.clients.client, platform.operatingSystem().fileSystem(),
                                    platform.library(), platform.activities(),
                                    platform.storeDownloads().makeFileManifest(0)});
    if (device.restore && device.restore->error) {
        device.notices.add("The restore is not finished: " + device.restore->error->text());
        logLine(log, LogLevel::Error, "restore", device.restore->error->text());
    } else if (device.restore) {
        platform.storeDownloads().renewItems();
    }
    device.purchases = std::make_shared<PurchaseFetcher>(
        platform.library(), platform.storeDownloads(),
        platform.operatingSystem().makeSerialQueue("orlith.restore"));
    platform.downloadManager()->addObserver(device.purchases);
    device.purchases->start();
    platform.storeDownloads().start();
}

void openDevice(Device& device, const DaemonOptions& options, const std::string& root,
                platform::LogService& log) {
    OptionalError error = putRestoreInPlace(root);
    if (error)
        giveUp(ExitFailure, *error);
    device.platform = EmbeddedPlatform::open(root, log, device.notices, error);
    if (!device.platform)
        giveUp(ExitFailure, *error);
    EmbeddedPlatform& platform = *device.platform;
    recoverLeftovers(platform.operatingSystem().fileSystem(), platform.syncDaemon().stagehold(),
                     platform.libraryAccess(), device.notices);
    platform.startBackgroundTasks();
    error = openBundle(options.bundlePath.empty() ? defaultBundlePath() : options.bundlePath,
                       platform, device.clients);
    if (error)
        giveUp(ExitConfiguration, *error);
    finishRestoring(device, log);
}

SessionServices servicesOf(Device& device, platform::LogService& log) {
    EmbeddedPlatform& platform = *device.platform;
    return {*device.clients.client,
            platform.libraryAccess(),
            platform.mediaLibrary(),
            platform.operatingSystem(),
            log,
            platform.operatingSystem().fileSystem(),
            platform.syncDaemon().stagehold(),
            device.slot,
            device.notices,
            platform.downloadManager().get()};
}

void serve(Device& device, common::UniqueFd listener, const DaemonOptions& options,
           const common::UniqueFd& signals, platform::LogService& log) {
    Server* toStop = nullptr;
    EmbeddedPlatform& platform = *device.platform;
    DaemonCalls calls(servicesOf(device, log), device.clients, platform, device.restore,
                      fs::path(options.root).filename().string(), [&toStop] { toStop->stop(); });
    Server server(calls.services(), calls.counter(), log, std::move(listener));
    toStop = &server;
    link::reportStartup(options.startupReport, {});
    tellReady("serving " + options.root);
    logLine(log, LogLevel::Notice, "start", "serving " + options.root);
    const Server::Ending ending = server.serve(signals.get(), options.idleExit, [&platform] {
        return platform.storeDownloads().isBusy();
    });
    logLine(log, LogLevel::Notice, "stop",
            ending == Server::Ending::Idle ? "leaving: nobody calls" : "leaving: asked to");
    tellStopping();
    releaseSignals(signals);
    calls.stop();
    // A host that does not read keeps whoever tells it waiting, until the server cuts it off.
    std::thread telling([&device] { device.slot.stop("the device's daemon is stopping"); });
    server.shutDown(StopGrace);
    telling.join();
}

// Everything that may still use the device ends before it is released.
void closeDevice(Device& device) {
    device.purchases->stop();
    device.clients = {};
    if (!device.platform->shutDown())
        ::_exit(ExitFailure);
    platform::Platform::install(nullptr);
    device.platform.reset();
}

}  // namespace

int runDaemon(const DaemonOptions& options) {
    ::umask(077);
    const common::UniqueFd signals = takeSignals();
    device::LogService log(options.logLevel);
    try {
        DaemonOptions settled = options;
        settled.root = openRoot(options.root);
        DeviceLock lock;
        lockDevice(lock, settled.root);
        Device device;
        openDevice(device, settled, settled.root, log);
        serve(device, listen(settled, settled.root), settled, signals, log);
        closeDevice(device);
        return ExitOrderly;
    } catch (const StartupFailure& failure) {
        link::reportStartup(options.startupReport, failure.what());
        fmt::print(stderr, "orlithd: {}\n", failure.what());
        return failure.exitCode();
    } catch (const std::exception& error) {
        link::reportStartup(options.startupReport, error.what());
        fmt::print(stderr, "orlithd: {}\n", error.what());
        return ExitFailure;
    }
}

}  // namespace orlith
