// Purpose: the tracks that a run is to bring back from the device.
// Thread: any.
// Failure: a track that the device does not have is an error (SyncErrorNoSuchTrack).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/plan/adoption.h"
#include "host/state/identity_source.h"
#include "platform/errors.h"

namespace host {

struct UploadRequests {
    struct Item {
        std::int64_t askedId = 0;  // as the settings file names the track
        std::string fileName;
    };
    std::vector<Item> items;
    bool deleteAfterUpload = false;
    // Tracks of the device's own that need a sync id first; `syncId` is the one to give.
    std::vector<DeviceTrack> named;

    bool empty() const { return items.empty(); }
    const Item* itemOf(const std::string& identifier) const;
    // The settings file's property list.
    std::string settings() const;
};

// `ids` are what the user named: persistent or sync ids.
platform::OptionalError resolveUploads(const std::vector<std::string>& ids, bool deleteAfterUpload,
                                       const std::vector<DeviceTrack>& tracks,
                                       IdentitySource& identities, UploadRequests& requests);

}  // namespace host
