// Making pictures in other sizes, in memory: one decode for any number of sizes.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/artwork/image_check.h"
#include "platform/errors.h"

namespace artwork {

// Of the errors below, and of the artwork service's own.
inline constexpr std::string_view ErrorDomain = "PXVArtworkServiceErrorDomain";
enum class ErrorCode : std::int64_t {
    NotAPicture = 1,  // the source is none, or it cannot be decoded
    TooLarge = 2,     // the source cannot be decoded safely
    BadSize = 3,      // a size that no picture can have was asked for
    Stopped = 4,      // the service ended before the request's turn
};
platform::Error makeError(ErrorCode code, std::string_view text);

struct PixelSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool operator==(const PixelSize&) const = default;
};

// Whether a picture of that size can be made: both sides 1 to 16,383 (the longest of all three
// formats), within MaximumPixels.
bool isPossible(PixelSize size);

// The picture in each size, encoded in the format that it has, in the order of `sizes`; all must be
// possible. Each result has exactly its size: the picture is scaled until it covers it, keeping its
// proportions, and what stands over on either side is cut off equally. It is upright (a rotation
// asked for by the picture is carried out), never CMYK, and carries no metadata but a colour
// profile. A truncated picture is made of what is there. Any thread; uses at most about
// MaximumDecoderMemory beside the results.
std::vector<std::vector<std::uint8_t>> resizeImage(std::span<const std::uint8_t> bytes,
                                                   std::span<const PixelSize> sizes,
                                                   platform::OptionalError& error);

}  // namespace artwork
