// Purpose: reads the playlists of a folder (M3U, M3U8, XSPF) and finds the files that they name.
// Thread: any; a FileIndex is not changed once made.
// Failure: a playlist that cannot be read has its reason; an entry that cannot be found is listed.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/scan/media_file.h"

namespace host {

// Bounds of one playlist file.
inline constexpr std::size_t PlaylistSizeLimit = 10u << 20;  // bytes
inline constexpr std::size_t PlaylistEntryLimit = 100'000;

// An entry as the playlist names it.
struct PlaylistLine {
    std::string text;  // as written, made valid UTF-8; for messages
    // The paths that it may mean, the likeliest first: raw bytes, '/' between parts, relative to
    // the playlist's folder or absolute. None when the entry is an address elsewhere.
    std::vector<std::string> paths;
};

// What a playlist file says, before anything is looked up.
struct ParsedPlaylist {
    std::string title;  // "" when it names none
    std::vector<PlaylistLine> lines;
};

// The parsers of the two formats. M3U may be UTF-8 (with or without a mark), UTF-16 with a mark, or
// Windows Latin. Both give a reason in plain words when the text is refused, else
// nothing.
std::optional<std::string> parseM3U(std::string_view text, ParsedPlaylist& playlist);
std::optional<std::string> parseXSPF(std::string_view text, ParsedPlaylist& playlist);

// Where the scanned files are found again: by exact bytes, in NFC, or, where only one file fits,
// without regard to case.
class FileIndex {
public:
    // `folder` is the scanned one; it resolves absolute entries. `files` are not kept.
    FileIndex(std::string_view folder, const std::vector<MediaFile>& files);
    ~FileIndex();
    FileIndex(FileIndex&&) noexcept;
    FileIndex& operator=(FileIndex&&) noexcept;

    // The file's place in `files`, or nothing. `path` is relative to the folder.
    std::optional<std::size_t> find(std::string_view path) const;
    // An absolute path made relative to the folder; nothing when it leads elsewhere.
    std::optional<std::string> relativePath(std::string_view absolute) const;

private:
    struct Tables;
    std::unique_ptr<Tables> _tables;
};

struct MissingEntry {
    std::size_t position = 0;  // counted from 1 among the playlist's entries
    std::string text;          // as written
    std::string reason;        // "no such file", "a playlist in a playlist is not followed", ...
};

struct Playlist {
    FileStamp stamp;
    std::string reason;  // why it cannot be read; empty when it can
    std::string name;    // its title, else the file's name without extension
    // Places in the scanned files, in order, duplicates kept. Files that cannot be read are
    // listed as missing instead.
    std::vector<std::size_t> items;
    std::vector<MissingEntry> missing;

    bool readable() const { return reason.empty(); }
};

// Reads one playlist of the scanned folder.
Playlist readPlaylist(std::string_view folder, const FileStamp& stamp, const FileIndex& index,
                      const std::vector<MediaFile>& files);

}  // namespace host
