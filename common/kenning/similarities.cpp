#include "common/kenning/similarities.h"

#include <algorithm>
#include <string_view>

#include "common/little_endian.h"

namespace common {

namespace {

constexpr std::string_view Mark = "KNSM";

}  // namespace

platform::Data encodeKenningSimilarities(std::span<const KenningSimilarity> similarities) {
    similarities = similarities.first(std::min(similarities.size(), KenningMaximumSimilar));
    platform::Data out(Mark.begin(), Mark.end());
    appendLittleEndian(out, static_cast<std::uint64_t>(KenningVersion), 2);
    appendLittleEndian(out, similarities.size(), 2);
    for (const KenningSimilarity& similarity : similarities) {
        appendLittleEndian(out, static_cast<std::uint64_t>(similarity.kenningId), 8);
        appendLittleEndian(out, similarity.score, 2);
    }
    return out;
}

std::optional<std::vector<KenningSimilarity>> decodeKenningSimilarities(
    std::span<const std::uint8_t> blob) {
    LittleEndianReader in(blob);
    if (in.text(Mark.size()) != Mark || in.number(2) != KenningVersion)
        return std::nullopt;
    const auto count = in.number(2);
    if (count > KenningMaximumSimilar)
        return std::nullopt;
    std::vector<KenningSimilarity> similarities(count);
    std::uint16_t previous = UINT16_MAX;
    for (KenningSimilarity& similarity : similarities) {
        similarity.kenningId = static_cast<std::int64_t>(in.number(8));
        similarity.score = static_cast<std::uint16_t>(in.number(2));
        if (similarity.score == 0 || similarity.score > previous)
            return std::nullopt;
        previous = similarity.score;
    }
    return in.isAtEnd() ? std::optional(std::move(similarities)) : std::nullopt;
}

}  // namespace common
