// Any bytes as the manifest of downloaded files: what is read can be written and read again.
#include <cstdint>
#include <cstdlib>

#include "device/downloads/manifest_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    platform::OptionalError error;
    const auto classes = downloads::parseManifest({data, size}, error);
    if (!classes)
        return 0;
    const auto bytes = downloads::serializeManifest(*classes, error);
    if (!bytes || downloads::parseManifest(*bytes, error) != classes)
        std::abort();
    return 0;
}
