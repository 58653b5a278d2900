#include "common/chapters/chapters.h"

#include <algorithm>
#include <string_view>

namespace common {

namespace {

constexpr std::string_view Magic = "KVTC";
constexpr std::uint64_t Version = 1;

void appendNumber(platform::Data& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void appendText(platform::Data& out, const std::string& text) {
    appendNumber(out, text.size(), 2);
    out.insert(out.end(), text.begin(), text.end());
}

bool isWithinLimits(const Chapter& chapter) {
    return chapter.title.size() <= MaximumChapterTextBytes &&
           chapter.artworkCacheID.size() <= MaximumChapterTextBytes;
}

// Takes values off the front; after the first one that is not there, everything is 0.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : _bytes(bytes) {}

    std::uint64_t number(int size) {
        const auto raw = take(static_cast<std::size_t>(size));
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < raw.size(); ++i)
            value |= std::uint64_t{raw[i]} << (8 * i);
        return value;
    }
    std::string text(std::size_t size) {
        const auto raw = take(size);
        return {raw.begin(), raw.end()};
    }
    bool isWhole() const { return _isWhole; }
    bool isAtEnd() const { return _isWhole && _bytes.empty(); }

private:
    std::span<const std::uint8_t> take(std::size_t size) {
        if (size > _bytes.size()) {
            _isWhole = false;
            return {};
        }
        const auto front = _bytes.first(size);
        _bytes = _bytes.subspan(size);
        return front;
    }

    std::span<const std::uint8_t> _bytes;
    bool _isWhole = true;
};

}  // namespace

std::optional<platform::Data> encodeChapters(std::vector<Chapter> chapters) {
    if (chapters.size() > MaximumChapters || !std::ranges::all_of(chapters, isWithinLimits))
        return std::nullopt;
    std::ranges::stable_sort(chapters, {}, &Chapter::startMs);
    platform::Data out(Magic.begin(), Magic.end());
    appendNumber(out, Version, 2);
    appendNumber(out, chapters.size(), 4);
    for (const Chapter& chapter : chapters) {
        appendNumber(out, chapter.startMs, 8);
        appendText(out, chapter.title);
        appendText(out, chapter.artworkCacheID);
    }
    if (out.size() > MaximumChapterDataBytes)
        return std::nullopt;
    return out;
}

std::optional<std::vector<Chapter>> decodeChapters(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > MaximumChapterDataBytes)
        return std::nullopt;
    Reader reader(bytes);
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
