#include "host/scan/file_purpose.h"

#include <algorithm>
#include <array>
#include <string>

#include "host/scan/file_names.h"
#include "host/scan/rule_file.h"

namespace host {

namespace {

constexpr auto MediaExtensions = std::to_array<std::string_view>(
    {"mp3", "m4a", "m4b", "flac", "ogg", "oga", "opus", "wav", "aac", "mp4", "m4v", "mov", "mkv"});
constexpr auto UnsupportedExtensions = std::to_array<std::string_view>(
    {"3gp", "aif",  "aifc", "aiff", "ape", "asf", "avi", "dff", "dsf",  "flv", "m2ts", "mid", "mka",
     "mpc", "mpeg", "mpg",  "mts",  "ra",  "rm",  "ts",  "vob", "webm", "wma", "wmv",  "wv"});
constexpr auto PlaylistExtensions = std::to_array<std::string_view>({"m3u", "m3u8", "xspf"});
constexpr auto ImageExtensions = std::to_array<std::string_view>({"jpeg", "jpg", "png", "webp"});
constexpr auto IgnoredExtensions = std::to_array<std::string_view>(
    {"7z",   "accurip", "asx",  "bak",    "bmp", "cfg", "conf", "csv",  "cue",  "db",   "doc",
     "docx", "epub",    "ffp",  "gif",    "gz",  "htm", "html", "idx",  "ini",  "json", "lnk",
     "log",  "lrc",     "md",   "md5",    "nfo", "odt", "old",  "part", "pdf",  "pls",  "rar",
     "rtf",  "sfv",     "sha1", "sha256", "srt", "ssa", "ass",  "sub",  "svg",  "tar",  "tif",
     "tiff", "tmp",     "toml", "txt",    "url", "vtt", "wpl",  "xml",  "yaml", "yml",  "zip"});
// Compared without case.
constexpr auto SystemFiles =
    std::to_array<std::string_view>({"desktop.ini", "icon\r", "thumbs.db"});
constexpr auto SystemFolders = std::to_array<std::string_view>(
    {"$recycle.bin", "@eadir", "__macosx", "lost+found", "system volume information"});

template <typename List>
bool contains(const List& list, std::string_view word) {
    return std::ranges::find(list, word) != list.end();
}

}  // namespace

FilePurpose purposeOfFile(std::string_view name) {
    if (name.starts_with('.') || name == RuleFileName ||
        contains(SystemFiles, caseFoldedName(name)))
        return FilePurpose::Ignored;
    const std::string extension = extensionOfPath(name);
    if (contains(MediaExtensions, extension))
        return FilePurpose::Media;
    if (contains(PlaylistExtensions, extension))
        return FilePurpose::Playlist;
    if (contains(ImageExtensions, extension))
        return FilePurpose::Image;
    if (contains(UnsupportedExtensions, extension))
        return FilePurpose::UnsupportedMedia;
    if (contains(IgnoredExtensions, extension))
        return FilePurpose::Ignored;
    return FilePurpose::Unknown;
}

bool isIgnoredFolder(std::string_view name) {
    return name.starts_with('.') || contains(SystemFolders, caseFoldedName(name));
}

}  // namespace host
