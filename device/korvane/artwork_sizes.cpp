#include "device/korvane/artwork_sizes.h"

#include "device/korvane/artwork_rows.h"

namespace korvane {

std::vector<KV3ArtworkSize> ArtworkSizes::sizesToAutogenerateForMediaType(
    std::uint32_t mediaType, std::int64_t artworkType) {
    if (mediaType != KV3MediaTypeMusic || artworkType != ArtworkTypeCover)
        return {};
    return {{100, 100}, {300, 300}, {600, 600}};
}

}  // namespace korvane
