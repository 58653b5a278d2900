#include "device/artwork/vips_runtime.h"

#include <algorithm>

namespace artwork {
namespace {

void discardMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

}  // namespace

bool startVips() {
    static const bool started = [] {
        if (VIPS_INIT("orlith") != 0)
            return false;
        vips_block_untrusted_set(TRUE);
        vips_cache_set_max(0);
        vips_concurrency_set(1);
        // A damaged picture warns on every line; what matters comes back as an error.
        g_log_set_handler("VIPS",
                          static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_INFO),
                          discardMessage, nullptr);
        return true;
    }();
    return started;
}

VipsImageHandle openImage(std::span<const std::uint8_t> bytes, ImageFormat format) {
    VipsImage* image = nullptr;
    // The loaders do not write to the buffer; their signatures are older than const.
    void* data = const_cast<std::uint8_t*>(bytes.data());
    switch (format) {
        case ImageFormat::Jpeg:
            vips_jpegload_buffer(data, bytes.size(), &image, nullptr);
            break;
        case ImageFormat::Png:
            vips_pngload_buffer(data, bytes.size(), &image, nullptr);
            break;
        case ImageFormat::WebP:
            vips_webpload_buffer(data, bytes.size(), &image, nullptr);
            break;
    }
    return VipsImageHandle(image);
}

std::string takeVipsMessage() {
    std::string message = vips_error_buffer();
    vips_error_clear();
    while (!message.empty() && message.back() == '\n')
        message.pop_back();
    std::replace(message.begin(), message.end(), '\n', ';');
    return message;
}

}  // namespace artwork
