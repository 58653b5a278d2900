#include "host/playlists/playlist_line.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>

#include "host/playlists/text_encoding.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

constexpr std::size_t EntryLimit = 16 * 1024;  // bytes: a longest path, percent-encoded

std::optional<int> hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return std::nullopt;
}

// A '%' that begins no code stands for itself, as does the code of a zero byte.
std::string percentDecoded(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto high =
            text[at] == '%' && at + 2 < text.size() ? hexDigit(text[at + 1]) : std::nullopt;
        const auto low = high ? hexDigit(text[at + 2]) : std::nullopt;
        if (low && *high * 16 + *low != 0) {
            result += static_cast<char>(*high * 16 + *low);
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

// The scheme of an address, in lower case; "" for a path. One letter is a drive, no scheme.
std::string schemeOf(std::string_view entry) {
    const auto colon = entry.find(':');
    if (colon == std::string_view::npos || colon < 2)
        return {};
    std::string scheme(entry.substr(0, colon));
    const bool valid = std::ranges::all_of(scheme, [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '-' || c == '.';
    });
    if (!valid || std::isalpha(static_cast<unsigned char>(scheme.front())) == 0)
        return {};
    // "Live: at home.mp3" is a name: an address goes on with a slash.
    if (!entry.substr(colon + 1).starts_with('/'))
        return {};
    std::ranges::transform(scheme, scheme.begin(), [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    });
    return scheme;
}

// The path of "file:///a", "file://localhost/a" or "file:/a".
std::string_view pathOfFileUri(std::string_view entry) {
    entry.remove_prefix(std::string_view("file:").size());
    if (entry.starts_with("//")) {
        entry.remove_prefix(2);
        const auto slash = entry.find('/');
        entry.remove_prefix(slash == std::string_view::npos ? entry.size() : slash);
    }
    return entry;
}

void addPath(std::string path, std::vector<std::string>& paths) {
    if (!path.empty() && path.find('\0') == std::string::npos &&
        std::ranges::find(paths, path) == paths.end())
        paths.push_back(std::move(path));
}

}  // namespace

PlaylistLine lineOfEntry(std::string_view entry, EntryStyle style) {
    PlaylistLine line;
    const bool utf8 = isUtf8(entry);
    line.text = displayText(utf8 ? std::string(entry) : utf8FromWindowsLatin(entry));
    if (entry.size() > EntryLimit)
        return line;
    const std::string scheme = schemeOf(entry);
    if (scheme == "file") {
        addPath(percentDecoded(pathOfFileUri(entry)), line.paths);
        return line;
    }
    if (!scheme.empty())
        return line;
    const std::string raw(entry);
    const std::string decoded = percentDecoded(entry);
    addPath(style == EntryStyle::Uri ? decoded : raw, line.paths);
    addPath(style == EntryStyle::Uri ? raw : decoded, line.paths);
    if (!utf8)
        addPath(utf8FromWindowsLatin(entry), line.paths);
    // Written on a system with the other separator.
    const std::size_t count = line.paths.size();
    for (std::size_t place = 0; place < count; ++place) {
        std::string turned = line.paths[place];
        std::ranges::replace(turned, '\\', '/');
        addPath(std::move(turned), line.paths);
    }
    return line;
}

}  // namespace host
