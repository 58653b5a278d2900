// Whether a file is a picture that the device can show, told from its header before any of it is
// decoded: JPEG, PNG or WebP by their first bytes (never by a name), of a size that decodes safely.
//
// Any thread. Nothing is kept between calls.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace artwork {

// Width times height.
inline constexpr std::uint64_t MaximumPixels = 50'000'000;
// Progressive, interlaced and WebP pictures lie in memory whole while they are decoded; this is the
// most that may take, in bytes.
inline constexpr std::uint64_t MaximumDecoderMemory = 128 << 20;
// The size of the file; bytes.
inline constexpr std::uint64_t MaximumImageFileSize = 32 << 20;

enum class ImageFormat { Jpeg, Png, WebP };

struct ImageInfo {
    ImageFormat format = ImageFormat::Jpeg;
    // Pixels as stored, before any rotation that the picture asks for; both at least 1.
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

struct ImageCheck {
    std::optional<ImageInfo> info;  // absent when the picture is refused
    std::string reason;             // why, in plain words; empty when it is not
    bool isTooLarge = false;        // refused for its size alone
};

// By the first bytes; absent for everything else.
std::optional<ImageFormat> imageFormat(std::span<const std::uint8_t> bytes);

// `bytes` is the whole file.
ImageCheck checkImage(std::span<const std::uint8_t> bytes);
// Reads an open regular file from its beginning; its position is neither used nor changed.
ImageCheck checkImageFile(int fd);

}  // namespace artwork
