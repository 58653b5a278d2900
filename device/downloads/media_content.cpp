#include "device/downloads/media_content.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace downloads {
namespace {

using Head = std::span<const std::uint8_t>;

struct Mark {
    std::size_t place;
    std::string_view bytes;
};

constexpr std::array Marks = std::to_array<Mark>({
    {0, "ID3"},  // MPEG audio with tags in front
    {0, "fLaC"},
    {0, "OggS"},
    {8, "WAVE"},  // after "RIFF" and a length
    {8, "AIFF"},
    {8, "AIFC"},
    {4, "ftyp"},  // MPEG-4 and QuickTime
    {4, "moov"},
    {4, "mdat"},
    {4, "wide"},
    {0, "\x1a\x45\xdf\xa3"},  // Matroska and WebM
    {0, "\x30\x26\xb2\x75"},  // ASF
    {0, "caff"},
});

bool has(Head head, const Mark& mark) {
    return head.size() >= mark.place + mark.bytes.size() &&
           std::equal(mark.bytes.begin(), mark.bytes.end(), head.begin() + mark.place,
                      [](char wanted, std::uint8_t found) {
                          return static_cast<std::uint8_t>(wanted) == found;
                      });
}

// A frame of MPEG audio or AAC begins with eleven set bits; some encoders put zeros before it.
bool beginsWithFrame(Head head) {
    const auto first = std::ranges::find_if(head, [](std::uint8_t byte) { return byte != 0; });
    return head.end() - first >= 2 && *first == 0xff && (first[1] & 0xe0) == 0xe0;
}

}  // namespace

bool beginsAsMedia(Head head) {
    return beginsWithFrame(head) ||
           std::ranges::any_of(Marks, [head](const Mark& mark) { return has(head, mark); });
}

}  // namespace downloads
