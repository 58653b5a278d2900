// A device-pulled asset request that waits for the download manager. Used on the client's queue
// only.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"
#include "platform/sync_daemon.h"

struct KVSyncAssetRequest {
    std::shared_ptr<ORAsset> asset;
    // Absolute time in seconds: when the request was made or its download last got on.
    double timestamp = 0;
    // Finishes the request; may be empty.
    std::function<void(KVSyncAssetRequest&, const platform::OptionalError&)> completion;

    std::string description() const {
        return "<KVSyncAssetRequest for " + asset->description() + ">";
    }
};

// The one error of the plug-in's own here: the asset cannot be served.
inline platform::Error KVAssetUnavailableError() {
    return {platform::ORErrorDomain, 3};
}
