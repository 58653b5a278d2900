// The one place that sets libvips up and owns its objects. Include only from .cpp files of this
// folder: libvips brings GLib's macros along.
#pragma once

#include <vips/vips.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "device/artwork/image_check.h"

namespace artwork {

struct VipsUnref {
    void operator()(VipsImage* image) const { g_object_unref(image); }
};
using VipsImageHandle = std::unique_ptr<VipsImage, VipsUnref>;

// Starts libvips on first use, once in the process: loaders that are not made for untrusted files
// are blocked, operations are not cached (the cache would take a new buffer at an old address for
// the old picture), one thread works on a picture, and its warnings are not printed. False when
// libvips cannot start.
bool startVips();

// The picture behind a header, nothing decoded yet; null when the header is damaged. `bytes` must
// outlive it.
VipsImageHandle openImage(std::span<const std::uint8_t> bytes, ImageFormat format);

// The calling thread's pending libvips messages as one line, which are taken away.
std::string takeVipsMessage();

}  // namespace artwork
