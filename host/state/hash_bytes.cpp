#include "host/state/hash_bytes.h"

#include <span>

namespace host {

std::string bytesOfContentHash(const ContentHash& hash) {
    std::string bytes;
    for (const std::uint64_t half : {hash.high, hash.low})
        for (int shift = 56; shift >= 0; shift -= 8)
            bytes += static_cast<char>(half >> shift & 0xff);
    return bytes;
}

std::optional<ContentHash> contentHashOfBytes(std::string_view bytes) {
    if (bytes.size() != 16)
        return std::nullopt;
    ContentHash hash;
    for (std::size_t i = 0; i < 16; ++i) {
        std::uint64_t& half = i < 8 ? hash.high : hash.low;
        half = half << 8 | static_cast<std::uint8_t>(bytes[i]);
    }
    return hash;
}

ContentHash contentHashOfText(std::string_view text) {
    return contentHashOf(
        std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

}  // namespace host
