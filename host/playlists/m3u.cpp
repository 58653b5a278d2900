#include <fmt/format.h>

#include "host/playlists/playlist_line.h"
#include "host/playlists/playlists.h"
#include "host/playlists/text_encoding.h"
#include "host/scan/file_names.h"

namespace host {

namespace {

constexpr std::string_view Utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view TitleDirective = "#PLAYLIST:";

std::string_view withoutSpaces(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<std::string> parseM3U(std::string_view text, ParsedPlaylist& playlist) {
    const auto converted = utf8FromMarkedUtf16(text);
    if (converted)
        text = *converted;
    if (text.starts_with(Utf8Mark))
        text.remove_prefix(Utf8Mark.size());
    while (!text.empty()) {
        const auto end = text.find_first_of("\r\n");
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.starts_with(TitleDirective)) {
            const std::string_view title = withoutSpaces(line.substr(TitleDirective.size()));
            playlist.title =
                displayText(isUtf8(title) ? std::string(title) : utf8FromWindowsLatin(title));
        } else if (!line.starts_with('#') && !withoutSpaces(line).empty()) {
            if (playlist.lines.size() == PlaylistEntryLimit)
                return fmt::format("it names more than {} files", PlaylistEntryLimit);
            playlist.lines.push_back(lineOfEntry(line, EntryStyle::Path));
        }
    }
    return std::nullopt;
}

}  // namespace host
