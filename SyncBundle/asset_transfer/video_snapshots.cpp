#include "SyncBundle/asset_transfer/video_snapshots.h"

#include <map>
#include <string>

namespace {

struct Snapshot {
    float seconds;
    std::int64_t mediaType;
};

// By asset type; made on first use.
const std::map<std::string, Snapshot, std::less<>>& snapshots() {
    static const std::map<std::string, Snapshot, std::less<>> table{
        {"TVEpisode", {105.0F, 512}},
        {"HomeVideo", {105.0F, 8192}},
    };
    return table;
}

}  // namespace

double KVVideoSnapshotTimeForAsset(const ORAsset& asset, std::int64_t* mediaType) {
    const auto found = snapshots().find(asset.assetType().value_or(std::string()));
    if (found == snapshots().end())
        return -1.0;
    if (mediaType)
        *mediaType = found->second.mediaType;
    return static_cast<double>(found->second.seconds);
}

void KVCreateVideoSnapshotIfNeeded(const ORAsset& asset, KV3Track& track) {
    const double time = KVVideoSnapshotTimeForAsset(asset, nullptr);
    if (time >= 0 && track.needsVideoSnapshot())
        track.createVideoSnapshotAtTime(time);
}
