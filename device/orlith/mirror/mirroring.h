// Mirroring put together: the plug-in's change sync and pulled assets, offered over the link.
//
// Made and released on the daemon's main thread, around the server.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "device/orlith/mirror/mirror_service.h"
#include "device/orlith/mirror/peer_service.h"
#include "platform/platform.h"

namespace orlith {

class Mirroring {
public:
    // All of it outlives this; the clients are complete. From here on the plug-in's changes are
    // heard.
    Mirroring(const SessionServices& device, const ORBundleClients& clients, PeerLibrary& peers,
              std::shared_ptr<VDDownloadManager> downloadManager, std::string deviceName,
              CallCounter& calls);
    // The plug-in is told that nobody hears it any more.
    ~Mirroring();
    Mirroring(const Mirroring&) = delete;
    Mirroring& operator=(const Mirroring&) = delete;

    std::vector<grpc::Service*> services() { return {&_peerService, &_mirrorService}; }
    // The daemon ends: runs that follow, and watchers, leave.
    void stop() { _hub->stop(); }
    MirrorServices& parts() { return _parts; }

private:
    const std::shared_ptr<ORSyncClient> _client;
    const std::shared_ptr<ChangeHub> _hub;              // the plug-in's delegate
    const std::shared_ptr<DownloadProgress> _progress;  // the download manager's observer
    ChangeOperations _changes;
    MirrorServices _parts;
    PeerService _peerService;
    MirrorService _mirrorService;
};

}  // namespace orlith
