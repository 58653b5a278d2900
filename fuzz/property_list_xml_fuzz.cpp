#include "fuzz/property_list_round_trip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::span<const std::uint8_t> input(bytes, size);
    if (size == 0 || bytes[0] != 'b')
        fuzz::checkPropertyList(input, platform::PropertyListFormat::XML);
    return 0;
}
