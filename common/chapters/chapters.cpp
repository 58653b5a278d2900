#include "common/chapters/chapters.h"

#include <algorithm>
#include <string_view>

#include "common/little_endian.h"

namespace common {

namespace {

constexpr std::string_view Magic = "KVTC";
constexpr std::uint64_t Version = 1;

bool isWithinLimits(const Chapter& chapter) {
    return chapter.title.size() <= MaximumChapterTextBytes &&
           chapter.artworkCacheID.size() <= MaximumChapterTextBytes;
}

}  // namespace

std::optional<platform::Data> encodeChapters(std::vector<Chapter> chapters) {
    if (chapters.size() > MaximumChapters || !std::ranges::all_of(chapters, isWithinLimits))
        return std::nullopt;
    std::ranges::stable_sort(chapters, {}, &Chapter::startMs);
    platform::Data out(Magic.begin(), Magic.end());
    appendLittleEndian(out, Version, 2);
    appendLittleEndian(out, chapters.size(), 4);
    for (const Chapter& chapter : chapters) {
        appendLittleEndian(out, chapter.startMs, 8);
        appendShortText(out, chapter.title);
        appendShortText(out, chapter.artworkCacheID);
    }
    if (out.size() > MaximumChapterDataBytes)
        return std::nullopt;
    return out;
}

std::optional<std::vector<Chapter>> decodeChapters(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > MaximumChapterDataBytes)
        return std::nullopt;
    LittleEndianReader reader(bytes);
    if (reader.text(Magic.size()) != Magic || reader.number(2) != Version)
        return std::nullopt;
    const std::uint64_t count = reader.number(4);
    if (count > MaximumChapters)
        return std::nullopt;
    std::vector<Chapter> chapters;
    for (std::uint64_t i = 0; i < count && reader.isWhole(); ++i) {
        Chapter chapter;
        chapter.startMs = reader.number(8);
        chapter.title = reader.text(reader.number(2));
        chapter.artworkCacheID = reader.text(reader.number(2));
        if (!isWithinLimits(chapter) ||
            (!chapters.empty() && chapter.startMs < chapters.back().startMs))
            return std::nullopt;
        chapters.push_back(std::move(chapter));
    }
    if (!reader.isAtEnd())
        return std::nullopt;
    return chapters;
}

}  // namespace common
