// Purpose: one check of a library: what it has found to disagree, and what it may do about it.
// Calling thread: one; nothing else changes the library or its files meanwhile.
// Failure: SqliteError from the library's database; a file that cannot be moved is not mended.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace device {
class RootedFileSystem;
}

namespace korvane {

class Library;

enum class CheckArea { Database, File, Artwork, Staging, Revision, Playlist, Chapters, Kenning };

// Plain words for people.
struct Finding {
    CheckArea area = CheckArea::Database;
    std::string subject;  // a path or a title
    std::string problem;
    std::string remedy;  // what a repair does
    bool isMended = false;
};

// Of the media files that are read.
struct ReadProgress {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    std::uint64_t allFiles = 0;
    std::uint64_t allBytes = 0;
};

struct CheckRun {
    Library& library;
    bool repairs = false;
    std::function<void(const Finding&)> report;
    // Given: every media file is read and compared with what came, and this is called after each
    // piece. When it answers false the check ends after what was found so far.
    std::function<bool(const ReadProgress&)> onRead = {};
    bool isStopped = false;  // by that
    // Set when the rest can only be looked at once the library has been opened anew.
    bool needsReopening = false;
};

// The checks, in the order in which they are made. The database first: whether the others may
// believe it.
bool checkDatabase(CheckRun& run);
// What an earlier start set aside because it was damaged.
void checkDatabasesAside(CheckRun& run);
void checkFiles(CheckRun& run);
void checkArtwork(CheckRun& run);
void checkRecords(CheckRun& run);
void checkRevisions(CheckRun& run);

// Damaged databases whose rows were carried into the library.
std::vector<std::string> carriedDatabases(device::RootedFileSystem& files,
                                          const std::string& databasePath);

// All of them, as far as they make sense.
void checkLibrary(CheckRun& run);

// Where files go that nobody owns, below their old path; nothing of it is ever deleted here.
inline constexpr char SetAsideDirectory[] = "/var/mobile/Media/Set_Aside/";
// Moves a file of the media directory there. Whether it is there now.
bool setFileAside(Library& library, const std::string& path);
// Moves a track's covers there, so that the track asks for them, and for its chapters' pictures,
// which come with them. Whether it does.
bool setCoversAside(Library& library, std::int64_t persistentID);

}  // namespace korvane
