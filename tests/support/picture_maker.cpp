// The pictures of tests/support/media_maker.h that need an encoder.
#include <vips/vips.h>

#include <memory>
#include <stdexcept>

#include "tests/support/media_maker.h"

namespace test {

namespace {

// A grey ramp in three bands, so that the encoders have something to do.
VipsImage* ramp(int width, int height) {
    if (VIPS_INIT("orlith-tests") != 0)
        throw std::runtime_error("vips");
    VipsImage* grey = nullptr;
    VipsImage* colour = nullptr;
    if (vips_grey(&grey, width, height, "uchar", TRUE, nullptr) != 0)
        throw std::runtime_error("vips");
    const int failed = vips_colourspace(grey, &colour, VIPS_INTERPRETATION_sRGB, nullptr);
    g_object_unref(grey);
    if (failed != 0)
        throw std::runtime_error("vips");
    return colour;
}

template <typename Save>
std::string encoded(int width, int height, Save save) {
    const std::unique_ptr<VipsImage, void (*)(VipsImage*)> image(
        ramp(width, height), [](VipsImage* i) { g_object_unref(i); });
    void* bytes = nullptr;
    std::size_t size = 0;
    if (save(image.get(), &bytes, &size, nullptr) != 0)
        throw std::runtime_error("vips");
    const std::unique_ptr<void, decltype(&g_free)> owner(bytes, &g_free);
    return {static_cast<const char*>(bytes), size};
}

}  // namespace

std::string plainJpeg(int width, int height, std::size_t size) {
    std::string bytes = encoded(width, height, vips_jpegsave_buffer);
    if (bytes.size() < size)
        bytes.append(size - bytes.size(), '\0');
    return bytes;
}

std::string plainPng(int width, int height) {
    return encoded(width, height, vips_pngsave_buffer);
}

std::string plainWebp(int width, int height) {
    return encoded(width, height, vips_webpsave_buffer);
}

}  // namespace test
