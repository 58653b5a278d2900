#include "host/scan/file_names.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace host {

namespace {

bool isAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void lowerAscii(std::string& text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
}

// `text` mapped by utf8proc, or as it is when it is no UTF-8.
std::string mapped(std::string_view text, int options) {
    utf8proc_uint8_t* result = nullptr;
    const auto size = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                   static_cast<utf8proc_ssize_t>(text.size()), &result,
                                   static_cast<utf8proc_option_t>(options));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, &std::free);
    if (size < 0)
        return std::string(text);
    return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(size)};
}

}  // namespace

std::string normalizedName(std::string_view name) {
    if (isAscii(name))
        return std::string(name);
    return mapped(name, UTF8PROC_STABLE | UTF8PROC_COMPOSE);
}

std::string caseFoldedName(std::string_view name) {
    std::string folded = isAscii(name)
                             ? std::string(name)
                             : mapped(name, UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
    lowerAscii(folded);
    return folded;
}

std::string displayText(std::string_view bytes, std::size_t limit) {
    std::string text;
    text.reserve(std::min(bytes.size(), limit));
    while (!bytes.empty()) {
        const auto* start = reinterpret_cast<const utf8proc_uint8_t*>(bytes.data());
        utf8proc_int32_t point = 0;
        auto size = utf8proc_iterate(start, static_cast<utf8proc_ssize_t>(bytes.size()), &point);
        std::string_view piece = "\xEF\xBF\xBD";
        if (size > 0)
            piece = bytes.substr(0, static_cast<std::size_t>(size));
        else
            size = 1;
        if (point >= 0 && (point < 0x20 || point == 0x7f))
            piece = " ";
        if (text.size() + piece.size() > limit)
            break;
        text += piece;
        bytes.remove_prefix(static_cast<std::size_t>(size));
    }
    return text;
}

std::string_view folderOfPath(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view fileNameOfPath(std::string_view path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

std::string_view stemOfPath(std::string_view path) {
    const std::string_view name = fileNameOfPath(path);
    const auto dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string extensionOfPath(std::string_view path) {
    const std::string_view name = fileNameOfPath(path);
    const auto dot = name.rfind('.');
    std::string extension;
    if (dot != std::string_view::npos && dot != 0)
        extension = name.substr(dot + 1);
    lowerAscii(extension);
    return extension;
}

}  // namespace host
