#include "common/utf8.h"

#include <cstdint>

namespace common {

std::optional<char32_t> takeCharacter(std::string_view& text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    if (first < 0x80) {
        text.remove_prefix(1);
        return first;
    }
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length)
        return std::nullopt;
    char32_t character = first & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return std::nullopt;
        character = character << 6 | (byte(i) & 0x3f);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (character < smallest[length] || character > 0x10ffff ||
        (character >= 0xd800 && character < 0xe000))
        return std::nullopt;
    text.remove_prefix(length);
    return character;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        if (!takeCharacter(text))
            return false;
    }
    return true;
}

void appendUtf8(std::string& text, char32_t character) {
    const auto append = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xc0 | character >> 6);
        append(0x80 | (character & 0x3f));
    } else if (character < 0x10000) {
        append(0xe0 | character >> 12);
        append(0x80 | (character >> 6 & 0x3f));
        append(0x80 | (character & 0x3f));
    } else {
        append(0xf0 | character >> 18);
        append(0x80 | (character >> 12 & 0x3f));
        append(0x80 | (character >> 6 & 0x3f));
        append(0x80 | (character & 0x3f));
    }
}

}  // namespace common
