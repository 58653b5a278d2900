#include <algorithm>
#include <string_view>

#include "fuzz/property_list_round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    constexpr std::string_view magic = "bplist00";
    const std::span<const std::uint8_t> input(bytes, size);
    if (size >= magic.size() && std::equal(magic.begin(), magic.end(), bytes))
        fuzz::checkPropertyList(input, platform::PropertyListFormat::Binary);
    return 0;
}
