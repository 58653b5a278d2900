// Purpose: makes of a picture's bytes what the device can show. The preparing runs in a worker; the
// result travels to the host as bytes.
// Thread: any one at a time in a process.
// Failure: a picture that cannot be used has its reason; decoding hostile bytes gives nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/scan/content_hash.h"

namespace host {

// A larger picture is not looked at.
inline constexpr std::size_t ImageSourceLimit = 64u << 20;  // bytes

struct PreparedImage {
    std::string reason;     // why it cannot be used, in plain words; empty when it can
    ContentHash hash{};     // of the picture as it was found
    std::string extension;  // "jpg" or "png"
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::string bytes;  // of the image to send
};

// JPEG and PNG within the device's limits stay byte for byte as they are; what is larger, turned,
// or WebP becomes a JPEG of at most ArtworkMaximumPixels. The size in pixels is checked before
// anything is decoded.
PreparedImage prepareImage(std::span<const std::uint8_t> picture);

std::string encodePreparedImage(const PreparedImage& image);
std::optional<PreparedImage> decodePreparedImage(std::string_view bytes);

}  // namespace host
