// Purpose: the sizes in which this device shows pictures.
// Calling thread: any; constants.
#pragma once

#include "platform/media_library.h"

namespace korvane {

class ArtworkSizes final : public KV3ArtworkConfiguration {
public:
    // Covers of music are shown in these, in pixels: a list's row, the playing song, the whole
    // screen. Pictures of every other kind are shown as they came.
    std::vector<KV3ArtworkSize> sizesToAutogenerateForMediaType(std::uint32_t mediaType,
                                                                std::int64_t artworkType) override;
};

}  // namespace korvane
