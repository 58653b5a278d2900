// A decoded frame made into the JPEG that a person would see.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

#include <array>
#include <cstdint>
#include <vector>

namespace artwork {

// How a frame is turned to stand upright: first exchanged along its diagonal, then mirrored.
struct Orientation {
    bool transposed = false;
    bool mirroredAcross = false;  // left and right
    bool mirroredDown = false;    // top and bottom
};

// Of the film's display matrix: nine 16.16 fixed-point numbers, row by row, of which the upper left
// two by two turn and mirror. Other angles than quarter turns are taken for the nearest of those.
Orientation orientationOf(const std::int32_t* displayMatrix);

// Square pixels, upright, no side longer than `longestSide`; never enlarged beyond what making the
// pixels square asks for. Empty when the frame cannot be converted.
std::vector<std::uint8_t> jpegOfFrame(const AVFrame& frame, AVRational sampleAspectRatio,
                                      Orientation orientation, int longestSide);

}  // namespace artwork
