// Any bytes as a chapter table of contents; what is believed is written again as it was.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "common/chapters/chapters.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto chapters = common::decodeChapters({data, size});
    if (!chapters)
        return 0;
    const auto written = common::encodeChapters(*chapters);
    if (!written || !std::equal(written->begin(), written->end(), data, data + size))
        std::abort();
    return 0;
}
