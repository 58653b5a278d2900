#include "host/session/upload_requests.h"

#include <algorithm>

#include "common/property_list/property_list.h"
#include "host/scan/file_names.h"
#include "host/session/sync_run.h"
#include "platform/values.h"

namespace host {

const UploadRequests::Item* UploadRequests::itemOf(const std::string& identifier) const {
    const auto found = std::ranges::find_if(
        items, [&](const Item& item) { return std::to_string(item.askedId) == identifier; });
    return found == items.end() ? nullptr : &*found;
}

std::string UploadRequests::settings() const {
    platform::Array operations;
    for (const Item& item : items) {
        platform::Dictionary operation;
        operation.emplace("operation", platform::Value("upload_track"));
        operation.emplace("pid", platform::Value(item.askedId));
        if (deleteAfterUpload)
            operation.emplace("delete_after_upload", platform::Value(true));
        operations.emplace_back(std::move(operation));
    }
    platform::Dictionary root;
    root.emplace("operations", platform::Value(std::move(operations)));
    const auto bytes = common::serializePropertyList(platform::Value(std::move(root)),
                                                     platform::PropertyListFormat::XML, nullptr);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

platform::OptionalError resolveUploads(const std::vector<std::string>& ids, bool deleteAfterUpload,
                                       const std::vector<DeviceTrack>& tracks,
                                       IdentitySource& identities, UploadRequests& requests) {
    requests.deleteAfterUpload = deleteAfterUpload;
    for (const std::string& id : ids) {
        const auto named = [&](std::int64_t candidate) { return std::to_string(candidate) == id; };
        auto found = std::ranges::find_if(tracks, named, &DeviceTrack::persistentId);
        if (found == tracks.end())
            found = std::ranges::find_if(tracks, [&](const DeviceTrack& track) {
                return track.syncId != 0 && named(track.syncId);
            });
        if (found == tracks.end())
            return platform::Error(SyncErrorDomain, SyncErrorNoSuchTrack,
                                   "the device has no track with the id " + id);
        DeviceTrack track = *found;
        // What is deleted after its upload is found by its sync id, so it must have one.
        if (deleteAfterUpload && track.syncId == 0) {
            track.syncId = identities.next();
            requests.named.push_back(track);
        }
        // The device adds the extension of its own file.
        requests.items.push_back(
            {deleteAfterUpload ? track.syncId : track.persistentId, track.title});
    }
    return std::nullopt;
}

}  // namespace host
