#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "SyncBundle/log.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view operation = "downloadManager:downloadStatesDidChange:";

// From the installing phase to the answer, so that the file has its place by then.
constexpr platform::Nanoseconds answerDelay = 5'000'000'000;

}  // namespace

void KVSyncClient::downloadManagerDownloadStatesDidChange(
    VDDownloadManager&, const std::vector<std::shared_ptr<VDDownload>>& downloads) {
    _queue->async([client = shared_from_this(), downloads] {
        for (const std::shared_ptr<VDDownload>& download : downloads)
            client->downloadStateDidChange(*download);
        client->_adjustRequestQueue();
    });
}

// Whatever changed, the request's time begins anew; a download that fails leaves it to its
// time-out.
void KVSyncClient::downloadStateDidChange(VDDownload& download) {
    KVLog(Info, operation, "state did change for %@", download);
    const platform::Value identifier =
        download.valueForProperty(VDDownloadPropertyLibraryItemIdentifier);
    const auto found = identifier.string() ? _requestsByIdentifier.find(*identifier.string())
                                           : _requestsByIdentifier.end();
    if (found == _requestsByIdentifier.end())
        return;
    const std::shared_ptr<KVSyncAssetRequest> request = found->second;
    const std::string phase = download.downloadPhaseIdentifier();
    KVLog(Info, operation, "progress made on %@ %@", request, phase);
    request->timestamp = platform::Platform::current().operatingSystem().absoluteTime();
    if (phase != VDDownloadPhaseInstalling)
        return;
    if (request->completion) {
        KVLog(Info, operation, "calling completion block on %@ in 5 seconds", request);
        _queue->asyncAfter(answerDelay, [request] {
            if (const auto completion = request->completion)
                completion(*request, std::nullopt);
        });
    }
    // From now on neither a later change nor the time-out touches it.
    _requestsByIdentifier.erase(found);
}
