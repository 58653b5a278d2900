// Files one asset that was pulled from another device: it is whole and on the disk before the
// plug-in hears of it, and what the library then holds is read back before it counts as here.
//
// One thread at a time. Exceptions of the plug-in pass through; nothing is left in the staging area
// then.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "device/orlith/incoming_file.h"
#include "device/orlith/mirror/mirror_services.h"

namespace orlith {

struct WantedAsset {
    std::shared_ptr<ORAsset> asset;
    std::int64_t syncID = 0;
    std::uint32_t parts = 0;  // file or artwork
    std::string title;
    std::int64_t idAtPeer = 0;
};

struct PulledPicture {
    std::string chapterCacheID;
    std::unique_ptr<IncomingFile> file;
};

// What came of one asset; every file is complete and checked.
struct PulledAsset {
    WantedAsset wanted;
    std::unique_ptr<IncomingFile> file;  // the media file or the cover
    std::string fileExtension;           // of a media file, checked; may be ""
    std::vector<PulledPicture> chapters;
    platform::OptionalError failure;  // it did not come
};

class PulledAssetFiler {
public:
    explicit PulledAssetFiler(const MirrorServices& services) : _services(services) {}

    // None when the asset is here, durably.
    platform::OptionalError file(PulledAsset& pulled);

private:
    platform::OptionalError deliver(PulledAsset& pulled);
    platform::OptionalError fileTrack(PulledAsset& pulled);
    platform::OptionalError filePictures(PulledAsset& pulled);
    platform::OptionalError stageChapters(PulledAsset& pulled, KV3Track& track,
                                          std::vector<std::string>& staged);
    platform::OptionalError readBackTrack(const PulledAsset& pulled, const std::string& name);
    platform::OptionalError recordRestore(const PulledAsset& pulled, const std::string& name);
    std::shared_ptr<KV3Track> trackOf(const PulledAsset& pulled);

    const MirrorServices& _services;
};

}  // namespace orlith
