// Takes one picture out of a film. The film is untrusted and its decoders are large, so this runs
// in a process of its own (see frame_grabber.h), which has nothing else to lose.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace artwork {

struct VideoFrame {
    std::vector<std::uint8_t> jpeg;  // empty on failure
    std::string reason;              // why there is none, in plain words
};

// The picture that a player shows at `seconds` from the beginning of the film in `fd`, as JPEG: the
// last frame that begins no later. Before the beginning that is the first frame, after the end the
// last one that can be decoded. Upright, with square pixels, no side longer than 1280 pixels.
//
// `fd` is an open regular file; only it is read, whatever else the film refers to. Gives up after
// `limit`. Audio, pictures and playlists are no films; nor is the cover inside an audio file.
VideoFrame videoFrameAt(int fd, double seconds, std::chrono::steady_clock::duration limit);

}  // namespace artwork
