// Feeds arbitrary bytes to the readers of Kenning blobs and of media records; what decodes must
// come out the same once encoded again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

#include "host/kenning/kenning.h"
#include "host/kenning/kenning_blobs.h"
#include "host/scan/media_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> blob(data, size);
    const platform::Data given(data, data + size);
    if (const auto metadata = host::decodeKenningMetadata(blob))
        if (host::encodeKenningMetadata(*metadata) != given)
            std::abort();
    if (const auto similarities = host::decodeKenningSimilarities(blob))
        if (host::encodeKenningSimilarities(*similarities) != given)
            std::abort();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto file = host::decodeMediaFile(text))
        if (host::encodeMediaFile(*file) != text)
            std::abort();
    return 0;
}
