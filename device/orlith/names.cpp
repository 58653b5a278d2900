#include "device/orlith/names.h"

#include <utf8proc.h>

#include <algorithm>
#include <charconv>

namespace orlith {
namespace {

constexpr std::size_t LongestFileName = 255;
constexpr std::size_t LongestPrintable = 128;
constexpr std::size_t LongestCacheID = 128;

bool isDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

// The length of the longest valid beginning.
std::size_t validPrefix(std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        utf8proc_int32_t codepoint = 0;
        const utf8proc_ssize_t used =
            utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + done,
                             static_cast<utf8proc_ssize_t>(text.size() - done), &codepoint);
        if (used <= 0)
            break;
        done += static_cast<std::size_t>(used);
    }
    return done;
}

bool isUTF8(std::string_view text) {
    return validPrefix(text) == text.size();
}

}  // namespace

std::optional<std::int64_t> parseIdentifier(std::string_view text) {
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, status] = std::from_chars(text.data(), end, value);
    if (status != std::errc() || stop != end || std::to_string(value) != text)
        return std::nullopt;
    return value;
}

bool isArtworkIdentifier(std::string_view text) {
    // A leading minus belongs to the number.
    const std::size_t hyphen = text.find('-', 1);
    if (hyphen == std::string_view::npos)
        return parseIdentifier(text).has_value();
    const std::string_view milliseconds = text.substr(hyphen + 1);
    return parseIdentifier(text.substr(0, hyphen)) && !milliseconds.empty() &&
           milliseconds.size() <= 20 && isDigits(milliseconds);
}

bool isArtworkCacheID(std::string_view text) {
    return !text.empty() && text.size() <= LongestCacheID &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                      c == '-' || c == '_';
           });
}

bool isFileExtension(std::string_view text) {
    return !text.empty() && text.size() <= 8 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
}

bool isSettingsFileName(std::string_view text) {
    constexpr std::string_view Begin = "Sync_";
    constexpr std::string_view End = ".plist";
    return text.size() >= Begin.size() + End.size() && text.size() <= LongestFileName &&
           text.starts_with(Begin) && text.ends_with(End) && isUTF8(text) &&
           std::none_of(text.begin(), text.end(), [](char c) { return c == '/' || isControl(c); });
}

std::string cleanUTF8(std::string text) {
    std::size_t checked = 0;
    while ((checked += validPrefix(std::string_view(text).substr(checked))) < text.size())
        text[checked] = '?';
    return text;
}

std::string printable(std::string_view text) {
    std::string result = cleanUTF8(std::string(text.substr(0, LongestPrintable)));
    std::replace_if(result.begin(), result.end(), isControl, '?');
    return result;
}

}  // namespace orlith
