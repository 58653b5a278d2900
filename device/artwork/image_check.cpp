#include "device/artwork/image_check.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "device/artwork/image_file.h"
#include "device/artwork/vips_runtime.h"

namespace artwork {
namespace {

ImageCheck refused(std::string reason) {
    return {std::nullopt, std::move(reason), false};
}

ImageCheck tooLarge(std::string reason) {
    return {std::nullopt, std::move(reason), true};
}

bool beginsWith(std::span<const std::uint8_t> bytes, std::size_t offset, std::string_view text) {
    return bytes.size() >= offset + text.size() &&
           std::memcmp(bytes.data() + offset, text.data(), text.size()) == 0;
}

bool headerFlag(VipsImage* image, const char* name) {
    int value = 0;
    return vips_image_get_typeof(image, name) != 0 &&
           vips_image_get_int(image, name, &value) == 0 && value != 0;
}

// Bytes that a decoder holds for the picture as a whole; 0 when it decodes line by line.
std::uint64_t decoderMemory(VipsImage* image, ImageFormat format, std::uint64_t pixels) {
    const auto bands = static_cast<std::uint64_t>(vips_image_get_bands(image));
    switch (format) {
        case ImageFormat::Jpeg:
            // A progressive picture is kept as 16-bit coefficients until its last scan is read.
            return headerFlag(image, "jpeg-multiscan") ? pixels * bands * 2 : 0;
        case ImageFormat::Png:
            return headerFlag(image, "interlaced")
                       ? pixels * bands * VIPS_IMAGE_SIZEOF_ELEMENT(image)
                       : 0;
        case ImageFormat::WebP:
            return pixels * 4;  // a lossless one is kept as 32-bit ARGB
    }
    return 0;
}

}  // namespace

std::optional<ImageFormat> imageFormat(std::span<const std::uint8_t> bytes) {
    if (beginsWith(bytes, 0, "\xFF\xD8\xFF"))
        return ImageFormat::Jpeg;
    if (beginsWith(bytes, 0, "\x89PNG\r\n\x1A\n"))
        return ImageFormat::Png;
    if (beginsWith(bytes, 0, "RIFF") && beginsWith(bytes, 8, "WEBP"))
        return ImageFormat::WebP;
    return std::nullopt;
}

ImageCheck checkImage(std::span<const std::uint8_t> bytes) {
    if (bytes.empty())
        return refused("The file is empty.");
    const std::optional<ImageFormat> format = imageFormat(bytes);
    if (!format)
        return refused("The file is not a JPEG, PNG or WebP picture.");
    if (!startVips())
        return refused("Pictures cannot be read: libvips does not start.");

    const VipsImageHandle image = openImage(bytes, *format);
    if (!image)
        return refused(fmt::format("The picture's header is damaged: {}", takeVipsMessage()));
    const auto width = static_cast<std::uint32_t>(vips_image_get_width(image.get()));
    const auto height = static_cast<std::uint32_t>(vips_image_get_height(image.get()));
    if (width == 0 || height == 0)
        return refused("The picture has no size.");

    const std::uint64_t pixels = std::uint64_t{width} * height;
    if (pixels > MaximumPixels)
        return tooLarge(
            fmt::format("The picture is too large: {} x {} pixels; at most {} million "
                        "can be decoded safely.",
                        width, height, MaximumPixels / 1'000'000));
    if (decoderMemory(image.get(), *format, pixels) > MaximumDecoderMemory)
        return tooLarge(
            fmt::format("The picture is too large for its kind of compression: {} x {} "
                        "pixels would take more than {} MiB to decode.",
                        width, height, MaximumDecoderMemory >> 20));
    return {ImageInfo{*format, width, height}, "", false};
}

ImageCheck checkImageFile(int fd) {
    platform::OptionalError error;
    const auto bytes = readWholeFile(fd, MaximumImageFileSize, error);
    if (bytes)
        return checkImage(*bytes);
    if (error->code == EFBIG)
        return tooLarge(fmt::format("The file is larger than {} MiB.", MaximumImageFileSize >> 20));
    return refused(fmt::format("The file cannot be read: {}", error->text()));
}

}  // namespace artwork
