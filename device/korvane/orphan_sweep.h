// Purpose: removes files that nothing in the library refers to: media files in the folders that
//          hosts fill, pictures in the artwork directory. Not the staging area, and not what a
//          store can give again: a restore finds those by their files.
// Calling thread: any; one sweep at a time.
// Failure: a file that cannot be removed stays for the next sweep; database errors are logged.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

class ActivityLock;
class Library;

// The folders that hosts fill, by base location: absolute device paths with a slash at their end.
// Of other locations files are left alone.
std::unordered_map<std::int64_t, std::string> foldersThatHostsFill(common::Database& database);

class OrphanSweep {
public:
    OrphanSweep(Library& library, ActivityLock& lock) : _library(library), _lock(lock) {}

    // Media files, then pictures, as long as `mayGoOn` says so and nobody holds the lock. Whether
    // it came to the end. Does nothing in a library that no host and no other device has ever
    // filled with tracks: its files may be all that is left of one that was damaged.
    bool run(const std::function<bool()>& mayGoOn);

private:
    bool isSafe();
    bool sweepMedia(const std::function<bool()>& mayGoOn);
    bool sweepArtwork(const std::function<bool()>& mayGoOn);
    void removeFiles(const std::vector<std::string>& paths);

    Library& _library;
    ActivityLock& _lock;
};

}  // namespace korvane
