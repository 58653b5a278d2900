// Purpose: where tracks' files lie: base locations, recording a file, looking for all of them.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError; a file that cannot be looked at counts as missing only when it is certain
//          that it is not there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace common {
class Database;
}
namespace device {
class RootedFileSystem;
}

namespace korvane {

// The location whose files lie in the cloud; there is nothing on this disk to look for.
inline constexpr std::int64_t CloudAssetsLocation = 400;
// From here on a store can give again what a device restore does not bring back.
inline constexpr std::int64_t FirstStoreLocation = 300;

// What a store sends need not be the file that item_extra.content_hash is of.
constexpr bool isFileOfContentHash(std::int64_t location) {
    return location != FirstStoreLocation && location != CloudAssetsLocation;
}

// What the bytes of the track's file should give as their XXH3-128 hash: 16 bytes, or empty when
// nobody knows.
std::string hashOfFile(common::Database& database, std::int64_t trackPID);

// Records an absolute device path and the file's size. Location 0 and no name when there is no
// regular file, or the path is not below the media directory.
bool recordLocation(common::Database& database, device::RootedFileSystem& files,
                    std::int64_t trackPID, const std::string& path);

// Tracks (by item_id) whose file is gone. Each base location is listed once; one that cannot be
// listed, though it is there, is passed over.
std::vector<std::int64_t> tracksWithoutTheirFile(common::Database& database,
                                                 device::RootedFileSystem& files);

}  // namespace korvane
