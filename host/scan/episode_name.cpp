#include "host/scan/episode_name.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <vector>

#include "host/scan/file_names.h"
#include "host/scan/folder_kinds.h"

namespace host {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetterOrDigit(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// One to `most` digits at `at`, which is moved behind them; nothing when there are none or more.
std::optional<std::int32_t> numberAt(std::string_view text, std::size_t& at, std::size_t most) {
    std::size_t end = at;
    while (end < text.size() && isDigit(text[end]))
        ++end;
    if (end == at || end - at > most)
        return std::nullopt;
    std::int32_t number = 0;
    std::from_chars(text.data() + at, text.data() + end, number);
    at = end;
    return number;
}

// A name's part as a title: dots and underlines for spaces, dashes and spaces off its ends.
std::string cleaned(std::string_view part) {
    std::string text(part);
    if (text.find(' ') == std::string::npos)
        std::ranges::replace(text, '.', ' ');
    std::ranges::replace(text, '_', ' ');
    const auto first = text.find_first_not_of(" -.[(");
    if (first == std::string::npos)
        return {};
    const auto last = text.find_last_not_of(" -.[(");
    return text.substr(first, last - first + 1);
}

std::vector<std::string_view> foldersOf(std::string_view path) {
    std::vector<std::string_view> folders;
    for (std::size_t slash; (slash = path.find('/')) != std::string_view::npos;) {
        folders.push_back(path.substr(0, slash));
        path.remove_prefix(slash + 1);
    }
    return folders;
}

bool isSeasonFolder(std::string_view name) {
    const std::string folded = caseFoldedName(name);
    return folded.starts_with("season") || folded.starts_with("series ") || folded == "specials";
}

}  // namespace

std::optional<EpisodeName> episodeNameOf(std::string_view path) {
    const std::string name = displayText(stemOfPath(path));
    for (std::size_t start = 0; start < name.size(); ++start) {
        if ((name[start] != 's' && name[start] != 'S') ||
            (start > 0 && isLetterOrDigit(name[start - 1])))
            continue;
        std::size_t at = start + 1;
        const auto season = numberAt(name, at, 4);
        if (!season)
            continue;
        if (at < name.size() && (name[at] == ' ' || name[at] == '.' || name[at] == '_'))
            ++at;
        if (at >= name.size() || (name[at] != 'e' && name[at] != 'E'))
            continue;
        const auto episode = numberAt(name, ++at, 4);
        if (!episode)
            continue;
        return EpisodeName{cleaned(std::string_view(name).substr(0, start)), *season, *episode,
                           cleaned(std::string_view(name).substr(at))};
    }
    return std::nullopt;
}

std::string showByFolder(std::string_view path) {
    const auto folders = foldersOf(path);
    for (std::size_t i = folders.size(); i-- > 0;) {
        if (isSeasonFolder(folders[i]))
            continue;
        return isEpisodeFolder(folders[i]) ? std::string() : displayText(folders[i]);
    }
    return {};
}

}  // namespace host
