// Purpose: which tracks are most like a track, as recommendation data say it: the blob that
//          docs/formats.md, "Kenning data", describes. Hosts write it, devices answer from it.
// Calling thread: any.
// Failure: bytes that are no such blob give nothing; they may come from anywhere.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/values.h"

namespace common {

inline constexpr std::size_t KenningMaximumSimilar = 25;
inline constexpr std::int64_t KenningVersion = 1;

struct KenningSimilarity {
    std::int64_t kenningId = 0;
    std::uint16_t score = 0;  // 1 to 65535, larger is more alike

    bool operator==(const KenningSimilarity&) const = default;
};

// At most KenningMaximumSimilar, the most alike first.
platform::Data encodeKenningSimilarities(std::span<const KenningSimilarity> similarities);
std::optional<std::vector<KenningSimilarity>> decodeKenningSimilarities(
    std::span<const std::uint8_t> blob);

}  // namespace common
