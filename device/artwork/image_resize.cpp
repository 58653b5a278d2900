#include "device/artwork/image_resize.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "device/artwork/vips_runtime.h"

namespace artwork {
namespace {

constexpr std::uint32_t LongestSide = 16'383;
constexpr int JpegQuality = 88;
constexpr int WebPQuality = 85;
constexpr int PngCompression = 6;

struct VipsBlobUnref {
    void operator()(void* memory) const { g_free(memory); }
};

// An EXIF orientation from 5 on exchanges width and height.
bool isLyingDown(VipsImage* image) {
    return vips_image_get_orientation(image) >= 5;
}

// The smallest size in the picture's own proportions that covers all that is asked for.
PixelSize sizeCoveringAll(const ImageInfo& info, bool lyingDown, std::span<const PixelSize> sizes) {
    const double width = lyingDown ? info.height : info.width;
    const double height = lyingDown ? info.width : info.height;
    double scale = 0;
    for (const PixelSize& size : sizes)
        scale = std::max({scale, size.width / width, size.height / height});
    const auto scaled = [scale](double side) {
        return static_cast<std::uint32_t>(std::max(1.0, std::ceil(side * std::min(scale, 1.0))));
    };
    return {scaled(width), scaled(height)};
}

// Everything that tells about the picture and its maker goes; a colour profile stays, without it
// the colours would be others.
void removeMetadata(VipsImage* image) {
    for (const char* name : {VIPS_META_EXIF_NAME, VIPS_META_XMP_NAME, VIPS_META_IPTC_NAME,
                             VIPS_META_PHOTOSHOP_NAME, VIPS_META_ORIENTATION})
        vips_image_remove(image, name);
}

VipsImageHandle decodeForSize(std::span<const std::uint8_t> bytes, PixelSize size) {
    VipsImage* image = nullptr;
    void* data = const_cast<std::uint8_t*>(bytes.data());
    vips_thumbnail_buffer(data, bytes.size(), &image, static_cast<int>(size.width), "height",
                          static_cast<int>(size.height), "size", VIPS_SIZE_DOWN, nullptr);
    const VipsImageHandle lazy(image);
    if (!lazy)
        return nullptr;
    // Decoded here once; every size is then made from memory.
    VipsImageHandle decoded(vips_image_copy_memory(lazy.get()));
    if (decoded)
        removeMetadata(decoded.get());
    return decoded;
}

// Cut before it is scaled: a ribbon of a picture would grow beyond all bounds the other way round.
VipsImageHandle middleInProportion(VipsImage* source, PixelSize size) {
    const double width = vips_image_get_width(source);
    const double height = vips_image_get_height(source);
    const double scale = std::max(size.width / width, size.height / height);
    const int shownWidth = static_cast<int>(std::clamp(size.width / scale + 0.5, 1.0, width));
    const int shownHeight = static_cast<int>(std::clamp(size.height / scale + 0.5, 1.0, height));
    VipsImage* image = nullptr;
    vips_crop(source, &image, (vips_image_get_width(source) - shownWidth) / 2,
              (vips_image_get_height(source) - shownHeight) / 2, shownWidth, shownHeight, nullptr);
    return VipsImageHandle(image);
}

VipsImageHandle cutToSize(VipsImage* source, PixelSize size) {
    const VipsImageHandle middle = middleInProportion(source, size);
    if (!middle)
        return nullptr;
    VipsImage* image = nullptr;
    vips_thumbnail_image(middle.get(), &image, static_cast<int>(size.width), "height",
                         static_cast<int>(size.height), "size", VIPS_SIZE_FORCE, "no_rotate", TRUE,
                         nullptr);
    return VipsImageHandle(image);
}

bool encode(VipsImage* image, ImageFormat format, std::vector<std::uint8_t>& out) {
    void* memory = nullptr;
    std::size_t size = 0;
    int status = -1;
    switch (format) {
        case ImageFormat::Jpeg:
            status = vips_jpegsave_buffer(image, &memory, &size, "Q", JpegQuality,
                                          "optimize_coding", TRUE, nullptr);
            break;
        case ImageFormat::Png:
            status =
                vips_pngsave_buffer(image, &memory, &size, "compression", PngCompression, nullptr);
            break;
        case ImageFormat::WebP:
            status = vips_webpsave_buffer(image, &memory, &size, "Q", WebPQuality, nullptr);
            break;
    }
    const std::unique_ptr<void, VipsBlobUnref> owner(memory);
    if (status != 0)
        return false;
    const auto* first = static_cast<const std::uint8_t*>(memory);
    out.assign(first, first + size);
    return true;
}

platform::Error decodeError() {
    return makeError(ErrorCode::NotAPicture,
                     fmt::format("The picture cannot be decoded: {}", takeVipsMessage()));
}

}  // namespace

platform::Error makeError(ErrorCode code, std::string_view text) {
    return {ErrorDomain, static_cast<std::int64_t>(code), text};
}

bool isPossible(PixelSize size) {
    return size.width >= 1 && size.height >= 1 && size.width <= LongestSide &&
           size.height <= LongestSide && std::uint64_t{size.width} * size.height <= MaximumPixels;
}

std::vector<std::vector<std::uint8_t>> resizeImage(std::span<const std::uint8_t> bytes,
                                                   std::span<const PixelSize> sizes,
                                                   platform::OptionalError& error) {
    const ImageCheck check = checkImage(bytes);
    if (!check.info) {
        error = makeError(check.isTooLarge ? ErrorCode::TooLarge : ErrorCode::NotAPicture,
                          check.reason);
        return {};
    }
    const VipsImageHandle header = openImage(bytes, check.info->format);
    const bool lyingDown = header && isLyingDown(header.get());
    const VipsImageHandle decoded =
        decodeForSize(bytes, sizeCoveringAll(*check.info, lyingDown, sizes));
    if (!decoded) {
        error = decodeError();
        return {};
    }
    std::vector<std::vector<std::uint8_t>> results(sizes.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const VipsImageHandle image = cutToSize(decoded.get(), sizes[i]);
        if (!image || !encode(image.get(), check.info->format, results[i])) {
            error = decodeError();
            return {};
        }
    }
    return results;
}

}  // namespace artwork
