// Any bytes as a smart playlist's rules; what is believed is written again as it was.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "device/korvane/smart_rules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto rules = korvane::decodeSmartRules({data, size});
    if (!rules)
        return 0;
    const auto written = korvane::encodeSmartRules(*rules);
    if (!written || !std::equal(written->begin(), written->end(), data, data + size))
        std::abort();
    return 0;
}
