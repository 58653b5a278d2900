#include <fmt/format.h>

#include <vector>

#include "host/playlists/playlists.h"
#include "host/scan/file_names.h"
#include "host/scan/file_purpose.h"
#include "host/scan/small_file.h"

namespace host {

namespace {

// Without "." and ".." and doubled slashes; nothing when it leads above its start.
std::optional<std::string> simplified(std::string_view path) {
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const auto slash = path.find('/');
        const std::string_view part = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (part.empty() || part == ".")
            continue;
        if (part != "..") {
            parts.push_back(part);
        } else if (parts.empty()) {
            return std::nullopt;
        } else {
            parts.pop_back();
        }
    }
    std::string result;
    for (const std::string_view part : parts) {
        if (!result.empty())
            result += '/';
        result += part;
    }
    return result;
}

class Resolver {
public:
    Resolver(std::string_view playlistPath, const FileIndex& index) : _index(index) {
        _folder = folderOfPath(playlistPath);
        if (!_folder.empty())
            _folder += '/';
        _playlist = playlistPath;
    }

    // The place of the file that an entry means, or why there is none.
    std::optional<std::size_t> resolve(const PlaylistLine& line, std::string& reason) const {
        reason = line.paths.empty() ? "it is no file of this folder" : "there is no such file";
        for (const std::string& path : line.paths)
            for (const std::string& relative : meanings(path)) {
                if (const auto place = _index.find(relative))
                    return place;
                if (relative == _playlist)
                    reason = "the playlist names itself";
                else if (purposeOfFile(fileNameOfPath(relative)) == FilePurpose::Playlist)
                    reason = "a playlist in a playlist is not followed";
            }
        return std::nullopt;
    }

private:
    // Paths relative to the scanned folder: beside the playlist, else from the folder's top.
    std::vector<std::string> meanings(const std::string& path) const {
        std::vector<std::string> result;
        const auto add = [&](const std::optional<std::string>& meaning) {
            if (meaning && !meaning->empty())
                result.push_back(*meaning);
        };
        if (path.starts_with('/')) {
            if (const auto absolute = simplified(path))
                if (const auto relative = _index.relativePath('/' + *absolute))
                    add(relative);
            return result;
        }
        add(simplified(_folder + path));
        if (!_folder.empty())
            add(simplified(path));
        return result;
    }

    const FileIndex& _index;
    std::string _folder;    // of the playlist, "" or with a '/' at its end
    std::string _playlist;  // its own path
};

}  // namespace

Playlist readPlaylist(std::string_view folder, const FileStamp& stamp, const FileIndex& index,
                      const std::vector<MediaFile>& files) {
    Playlist playlist;
    playlist.stamp = stamp;
    playlist.name = displayText(stemOfPath(stamp.path));
    std::string text;
    playlist.reason =
        readSmallFile(std::string(folder) + '/' + stamp.path, PlaylistSizeLimit, text);
    if (!playlist.readable())
        return playlist;
    ParsedPlaylist parsed;
    const auto refused =
        extensionOfPath(stamp.path) == "xspf" ? parseXSPF(text, parsed) : parseM3U(text, parsed);
    if (refused) {
        playlist.reason = *refused;
        return playlist;
    }
    if (!parsed.title.empty())
        playlist.name = parsed.title;
    const Resolver resolver(stamp.path, index);
    for (std::size_t position = 1; PlaylistLine & line : parsed.lines) {
        std::string reason;
        const auto place = resolver.resolve(line, reason);
        if (place && files[*place].readable())
            playlist.items.push_back(*place);
        else
            playlist.missing.push_back(
                {position, std::move(line.text), place ? files[*place].reason : reason});
        ++position;
    }
    return playlist;
}

}  // namespace host
