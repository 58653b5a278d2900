#include "host/scan/content_hash.h"

#include <algorithm>

namespace host {

ContentHash contentHashOfText(std::string_view text) {
    return common::xxh3({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string bytesOfContentHash(const ContentHash& hash) {
    return {hash.begin(), hash.end()};
}

std::optional<ContentHash> contentHashOfBytes(std::string_view bytes) {
    ContentHash hash{};
    if (bytes.size() != hash.size())
        return std::nullopt;
    std::ranges::copy(bytes, hash.begin());
    return hash;
}

}  // namespace host
