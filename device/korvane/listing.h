// Purpose: the library as its owner looks at it: every track, every playlist, and how many.
// Calling thread: any; callbacks run on it, outside of any transaction.
// Ownership: the texts of a row are borrowed for its callback.
// Failure: a database error is logged and ends the list.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class Library;

struct ListedTrack {
    std::int64_t persistentID = 0;
    std::int64_t syncID = 0;
    std::int64_t globalID = 0;
    std::optional<std::string_view> title;
    std::optional<std::string_view> artist;
    std::optional<std::string_view> album;
    std::uint32_t discNumber = 0;
    std::uint32_t trackNumber = 0;
    std::uint32_t mediaType = 0;
    std::string path;         // absolute device path; empty without a file
    std::uint64_t size = 0;   // bytes
    bool hasArtwork = false;  // the original is on the device
    bool hasKenning = false;
    std::uint32_t chapters = 0;
    std::uint32_t rating = 0;  // 0 to 100
    std::uint64_t playCount = 0;
    std::string_view contentHash;  // 16 bytes, or empty
    std::optional<std::string_view> hostPath;
    bool isFromHost = false;
};

struct ListedPlaylist {
    std::int64_t persistentID = 0;
    std::int64_t syncID = 0;
    std::int64_t globalID = 0;
    std::string name;
    bool isSmart = false;
    std::vector<std::int64_t> tracks;  // persistent ids, in order; what is not resolved is left out
    bool isFromHost = false;
    bool isBuiltIn = false;
    std::string rules = {};  // of a smart one, in words
    std::string limit = {};
};

// By album artist, album, disc and track. False from the callback ends the list.
void listTracks(Library& library, const std::function<bool(const ListedTrack&)>& callback);
// In the order in which they came.
void listPlaylists(Library& library, const std::function<bool(const ListedPlaylist&)>& callback);

struct LibraryCounts {
    std::uint64_t tracks = 0;
    std::uint64_t playlists = 0;
    std::uint64_t missingFiles = 0;  // tracks of the host or of a companion without a file
};
// Reads none of the tracks that have their file.
LibraryCounts libraryCounts(Library& library);

// Whether a file that the library knows of is not where it should be.
bool lacksFiles(Library& library);

// Paths of the files of tracks that only the host's data keeps in the library.
std::vector<std::string> filesHeldByHostAlone(Library& library);

}  // namespace korvane
