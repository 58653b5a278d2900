#include <fmt/format.h>
#include <vips/vips.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "host/artwork/artwork.h"
#include "host/artwork/prepared_image.h"

namespace host {

namespace {

constexpr std::int64_t PixelLimit = 50'000'000;  // width times height
constexpr int JpegQuality = 88;

enum class Format { None, Jpeg, Png, Webp };

using Bytes = std::span<const std::uint8_t>;

struct Unref {
    void operator()(VipsImage* image) const { g_object_unref(image); }
};
using Image = std::unique_ptr<VipsImage, Unref>;

Image owned(VipsImage* image) {
    return Image(image);
}

// A damaged picture is told by its reason; the library would write about it to the terminal too.
void ignoreWarning(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

// Only the three loaders named below are ever called; the rest of the library stays shut.
bool startLibrary() {
    static const bool started = [] {
        // Code made at run time does not go with a bounded address space.
        ::setenv("VIPS_NOVECTOR", "1", 1);
        if (VIPS_INIT("orlith-scan-worker") != 0)
            return false;
        g_log_set_handler("VIPS", G_LOG_LEVEL_WARNING, ignoreWarning, nullptr);
        vips_block_untrusted_set(TRUE);
        vips_cache_set_max(0);
        vips_concurrency_set(1);
        return true;
    }();
    return started;
}

// The library gathers error texts; they go with the picture that they are about.
struct ErrorText {
    ErrorText() = default;
    ErrorText(const ErrorText&) = delete;
    ErrorText& operator=(const ErrorText&) = delete;
    ~ErrorText() { vips_error_clear(); }
};

bool startsWith(Bytes bytes, std::string_view text) {
    return bytes.size() >= text.size() &&
           std::equal(text.begin(), text.end(), bytes.begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

Format formatOf(Bytes bytes) {
    if (startsWith(bytes, "\xff\xd8\xff"))
        return Format::Jpeg;
    if (startsWith(bytes, "\x89PNG\r\n\x1a\n"))
        return Format::Png;
    if (startsWith(bytes, "RIFF") && bytes.size() >= 12 && startsWith(bytes.subspan(8), "WEBP"))
        return Format::Webp;
    return Format::None;
}

// The image with its header read and nothing decoded yet; null when the header is no good.
Image openHeader(Bytes bytes, Format format) {
    // The library reads from the buffer only; its signature lacks the const.
    auto* data = const_cast<void*>(static_cast<const void*>(bytes.data()));
    const auto load = format == Format::Jpeg  ? vips_jpegload_buffer
                      : format == Format::Png ? vips_pngload_buffer
                                              : vips_webpload_buffer;
    VipsImage* image = nullptr;
    if (load(data, bytes.size(), &image, "access", VIPS_ACCESS_SEQUENTIAL, "fail_on",
             VIPS_FAIL_ON_TRUNCATED, nullptr) != 0)
        return nullptr;
    return owned(image);
}

// Decodes everything once, to know that the device can.
bool decodes(VipsImage* image) {
    double average = 0;
    return vips_avg(image, &average, nullptr) == 0;
}

bool fitsAsItIs(VipsImage* image, Bytes bytes, Format format) {
    return format != Format::Webp && std::ssize(bytes) <= ArtworkSizeLimit &&
           vips_image_get_width(image) <= ArtworkMaximumPixels &&
           vips_image_get_height(image) <= ArtworkMaximumPixels &&
           vips_image_get_orientation(image) <= 1 &&
           vips_image_get_interpretation(image) != VIPS_INTERPRETATION_CMYK &&
           vips_image_get_format(image) == VIPS_FORMAT_UCHAR;
}

// An upright sRGB picture within the bounds, without transparency; null when decoding fails.
Image scaled(Bytes bytes) {
    auto* data = const_cast<void*>(static_cast<const void*>(bytes.data()));
    VipsImage* thumbnail = nullptr;
    if (vips_thumbnail_buffer(data, bytes.size(), &thumbnail, ArtworkMaximumPixels, "height",
                              ArtworkMaximumPixels, "size", VIPS_SIZE_DOWN, "export_profile",
                              "srgb", "fail_on", VIPS_FAIL_ON_TRUNCATED, nullptr) != 0)
        return nullptr;
    Image image = owned(thumbnail);
    if (!vips_image_hasalpha(image.get()))
        return image;
    VipsImage* flat = nullptr;
    const double white[] = {255, 255, 255};
    const std::unique_ptr<VipsArrayDouble, void (*)(VipsArrayDouble*)> background(
        vips_array_double_new(white, vips_image_get_bands(image.get()) > 2 ? 3 : 1),
        [](VipsArrayDouble* array) { vips_area_unref(VIPS_AREA(array)); });
    if (vips_flatten(image.get(), &flat, "background", background.get(), nullptr) != 0)
        return nullptr;
    return owned(flat);
}

void reencode(Bytes bytes, PreparedImage& prepared) {
    const Image image = scaled(bytes);
    void* encoded = nullptr;
    std::size_t size = 0;
    if (!image || vips_jpegsave_buffer(image.get(), &encoded, &size, "Q", JpegQuality, "strip",
                                       TRUE, "optimize_coding", TRUE, nullptr) != 0) {
        prepared.reason = "the picture is damaged";
        return;
    }
    const std::unique_ptr<void, decltype(&g_free)> owner(encoded, &g_free);
    prepared.extension = "jpg";
    prepared.width = vips_image_get_width(image.get());
    prepared.height = vips_image_get_height(image.get());
    prepared.bytes.assign(static_cast<const char*>(encoded), size);
    if (std::ssize(prepared.bytes) > ArtworkSizeLimit)
        prepared.reason = fmt::format("the picture is larger than {} bytes", ArtworkSizeLimit);
}

void prepare(Bytes bytes, PreparedImage& prepared) {
    if (bytes.empty()) {
        prepared.reason = "the picture is empty";
        return;
    }
    if (bytes.size() > ImageSourceLimit) {
        prepared.reason = fmt::format("the picture is larger than {} bytes", ImageSourceLimit);
        return;
    }
    const Format format = formatOf(bytes);
    if (format == Format::None) {
        prepared.reason = "it is no picture that the device can show (JPEG, PNG or WebP)";
        return;
    }
    if (!startLibrary()) {
        prepared.reason = "the picture library does not start";
        return;
    }
    const ErrorText errors;
    const Image image = openHeader(bytes, format);
    if (!image) {
        prepared.reason = "the picture is damaged";
        return;
    }
    const int width = vips_image_get_width(image.get());
    const int height = vips_image_get_height(image.get());
    if (std::int64_t{width} * height > PixelLimit) {
        prepared.reason = fmt::format("the picture has {} x {} pixels, more than {} in all", width,
                                      height, PixelLimit);
        return;
    }
    if (!fitsAsItIs(image.get(), bytes, format))
        return reencode(bytes, prepared);
    if (!decodes(image.get())) {
        prepared.reason = "the picture is damaged";
        return;
    }
    prepared.extension = format == Format::Jpeg ? "jpg" : "png";
    prepared.width = width;
    prepared.height = height;
    prepared.bytes.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

PreparedImage prepareImage(std::span<const std::uint8_t> picture) {
    PreparedImage prepared;
    prepared.hash = common::xxh3(picture);
    prepare(picture, prepared);
    if (!prepared.reason.empty())
        prepared.bytes.clear();
    return prepared;
}

}  // namespace host
