#include "device/orlith/daemon_calls.h"

namespace orlith {

DaemonCalls::DaemonCalls(const SessionServices& parts, const ORBundleClients& clients,
                         EmbeddedPlatform& platform, const std::optional<FinishedRestore>& restore,
                         const std::string& deviceName, const std::function<void()>& requestStop)
    : _device(parts, requestStop),
      _mirroring(parts, clients, platform.peers(), platform.downloadManager(), deviceName,
                 counter()),
      _owner({platform.library(), platform.storeDownloads(), platform.cloud(), parts.log, counter(),
              [&platform] { platform.startBackgroundTasks(); }}),
      _backup({*clients.client, parts.files, platform.library(), platform.activities(), parts.slot,
               parts.log, counter(), requestStop, restore}),
      _similar(platform.library(), parts.log, counter()),
      _reports({{*clients.client, platform.library(), platform.libraryAccess(),
                 platform.syncDaemon(), platform.operatingSystem().propertyLists()},
                parts.slot,
                parts.log,
                counter()}),
      _check({platform.library(), platform.activities(), platform.libraryAccess(),
              platform.syncDaemon().stagehold(), parts.notices, parts.slot, parts.log, counter(),
              requestStop}) {}

std::vector<grpc::Service*> DaemonCalls::services() {
    std::vector<grpc::Service*> services = _mirroring.services();
    services.insert(services.end(), {&_device, &_owner, &_backup, &_similar, &_reports, &_check});
    return services;
}

}  // namespace orlith
