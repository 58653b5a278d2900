#include "device/orlith/mirror/mirroring.h"

#include <utility>

namespace orlith {

Mirroring::Mirroring(const SessionServices& device, const ORBundleClients& clients,
                     PeerLibrary& peers, std::shared_ptr<VDDownloadManager> downloadManager,
                     std::string deviceName, CallCounter& calls)
    : _client(clients.syncClient),
      _hub(std::make_shared<ChangeHub>()),
      _progress(std::make_shared<DownloadProgress>()),
      _changes(*clients.syncClient, device.files),
      _parts{device, *clients.assetClient, _changes, peers, *_progress, std::move(deviceName)},
      _peerService(_parts, *_hub, calls),
      _mirrorService(_parts, *_hub, calls) {
    if (downloadManager)
        downloadManager->addObserver(_progress);
    if (_client->respondsTo(ORSyncClientOperation::setDelegate))
        _client->setDelegate(_hub);
}

Mirroring::~Mirroring() {
    if (_client->respondsTo(ORSyncClientOperation::setDelegate))
        _client->setDelegate(nullptr);
}

}  // namespace orlith
