// Purpose: covers made from a film's own pictures.
// Calling thread: any; grabbing a frame takes a while and holds no transaction of its own.
// Failure: logged and answered with false.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace korvane {

class Library;

struct VideoSnapshotNeed {
    std::string path;   // the film
    std::string token;  // of the cover
    double length = 0;  // seconds; 0 when it is not known
    std::uint32_t mediaType = 0;
};

// Absent for a track that is no video, has no file or no artwork token, or whose cover is there.
std::optional<VideoSnapshotNeed> videoSnapshotNeed(Library& library, std::int64_t trackPID);
// The frame at a time (seconds; beyond the film's length: its end) becomes the track's original.
bool createVideoSnapshot(Library& library, std::int64_t trackPID, double seconds);

}  // namespace korvane
