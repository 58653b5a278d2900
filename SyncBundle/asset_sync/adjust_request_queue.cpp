#include <limits>
#include <string>
#include <vector>

#include "SyncBundle/KVSyncClient.h"
#include "SyncBundle/asset_sync/sync_asset_request.h"
#include "SyncBundle/log.h"
#include "platform/platform.h"

namespace {

constexpr double requestTimeout = 30.0;  // seconds
constexpr double nanosecondsPerSecond = 1'000'000'000.0;

}  // namespace

void KVSyncClient::_adjustRequestQueue() {
    constexpr std::string_view operation = "_adjustRequestQueue";
    platform::OperatingSystem& system = platform::Platform::current().operatingSystem();
    const double now = system.absoluteTime();
    double oldest = std::numeric_limits<double>::max();
    std::vector<std::string> expired;

    for (const auto& [identifier, request] : _requestsByIdentifier) {
        const double age = now - request->timestamp;
        KVLog(Warning, operation, "request is over due by %f seconds", age);
        if (age > requestTimeout) {
            KVLog(Warning, operation, "timeout requesting asset %@", request->asset);
            if (request->completion)
                request->completion(*request, KVAssetUnavailableError());
            expired.push_back(identifier);
        } else if (request->timestamp < oldest) {
            oldest = request->timestamp;
        }
    }
    for (const std::string& identifier : expired)
        _requestsByIdentifier.erase(identifier);

    if (_requestsByIdentifier.empty()) {
        _requestTimer->setTimer(platform::Never, platform::Never, KVRequestTimerLeeway);
        return;
    }
    const double delay = oldest - now + requestTimeout;
    KVLog(Warning, operation, "next timeout time in %f seconds", delay);
    const auto wait = static_cast<std::int64_t>(delay * nanosecondsPerSecond);
    _requestTimer->setTimer(system.monotonicTime() + static_cast<platform::Nanoseconds>(wait),
                            platform::Never, KVRequestTimerLeeway);
}
