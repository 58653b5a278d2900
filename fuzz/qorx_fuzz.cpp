// Any bytes as a "QORX" stream: as they are, and again with a checksum that is right, so that the
// fuzzer reaches what lies behind it.
#include <google/protobuf/stubs/logging.h>
#include <xxhash.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "common/qorx/reader.h"

namespace {

void readToTheEnd(std::span<const std::uint8_t> bytes) {
    common::QorxReader reader(bytes);
    google::protobuf::Arena arena;
    while (reader.next(arena) != nullptr) {
    }
    // The same bytes in pieces come to the same end.
    std::size_t at = 0;
    common::QorxReader streaming([&](std::span<std::uint8_t> room, platform::OptionalError*) {
        const std::size_t size = std::min({std::size_t{5}, room.size(), bytes.size() - at});
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, room.begin());
        at += size;
        return size;
    });
    const bool whole = common::verifyQorx(streaming, nullptr).has_value();
    if (whole == reader.error().has_value()) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const google::protobuf::LogSilencer silence;
    readToTheEnd({data, size});
    std::vector<std::uint8_t> sealed(data, data + size);
    std::uint64_t checksum = XXH3_64bits(data, size);
    for (int i = 0; i < 8; ++i, checksum >>= 8) {
        sealed.push_back(static_cast<std::uint8_t>(checksum));
    }
    readToTheEnd(sealed);
    return 0;
}
