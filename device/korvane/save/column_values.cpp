#include "device/korvane/save/column_values.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "common/sqlite/statement.h"

namespace korvane {

namespace {

// Bytes from the beginning that are ASCII, in whole words: nearly all texts are.
std::size_t asciiPrefix(std::string_view raw) {
    constexpr std::uint64_t HighBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t word = 0; at + sizeof word <= raw.size(); at += sizeof word) {
        std::memcpy(&word, raw.data() + at, sizeof word);
        if (word & HighBits)
            break;
    }
    return at;
}

// The length of the character at a place; 0 for a byte that begins none.
std::size_t characterLength(std::string_view raw, std::size_t at) {
    if (static_cast<unsigned char>(raw[at]) < 0x80)
        return 1;
    utf8proc_int32_t codepoint = 0;
    const auto length =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(raw.data() + at),
                         static_cast<utf8proc_ssize_t>(raw.size() - at), &codepoint);
    return static_cast<std::size_t>(std::max<utf8proc_ssize_t>(length, 0));
}

}  // namespace

void setText(std::string_view raw, std::string& field) {
    std::size_t at = asciiPrefix(raw);
    std::size_t taken = 0;  // what the field has of the text
    field.clear();
    while (at < raw.size()) {
        if (const std::size_t length = characterLength(raw, at)) {
            at += length;
            continue;
        }
        field.append(raw, taken, at - taken).append("\uFFFD");
        taken = ++at;
    }
    field.append(raw, taken);
}

void setText(const common::Statement& row, int column, std::string& field) {
    setText(row.text(column), field);
}

void setBytes(const common::Statement& row, int column, std::string& field) {
    const auto blob = row.blob(column);
    field.assign(blob.begin(), blob.end());
}

std::uint32_t small(const common::Statement& row, int column) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(row.int64(column), 0, std::numeric_limits<std::uint32_t>::max()));
}

std::uint64_t large(const common::Statement& row, int column) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(row.int64(column), 0));
}

}  // namespace korvane
