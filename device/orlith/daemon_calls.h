// Everything that can be asked of a device's daemon over the link: one service for each of its
// sides.
//
// Made and released on the daemon's main thread; called on threads of the RPC library.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "device/orlith/backup/backup_service.h"
#include "device/orlith/check_service.h"
#include "device/orlith/device_service.h"
#include "device/orlith/embedded_platform.h"
#include "device/orlith/mirror/mirroring.h"
#include "device/orlith/owner_service.h"
#include "device/orlith/reports_service.h"
#include "device/orlith/similar_service.h"

namespace orlith {

class DaemonCalls {
public:
    // All of it outlives this. `deviceName` is what other devices call it; `requestStop` asks the
    // daemon to leave and returns at once.
    DaemonCalls(const SessionServices& parts, const ORBundleClients& clients,
                EmbeddedPlatform& platform, const std::optional<FinishedRestore>& restore,
                const std::string& deviceName, const std::function<void()>& requestStop);

    std::vector<grpc::Service*> services();
    CallCounter& counter() { return _device.calls(); }
    // Mirrors end.
    void stop() { _mirroring.stop(); }

private:
    DeviceService _device;
    Mirroring _mirroring;
    OwnerService _owner;
    BackupService _backup;
    SimilarService _similar;
    ReportsService _reports;
    CheckService _check;
};

}  // namespace orlith
