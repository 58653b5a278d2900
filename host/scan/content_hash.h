// Purpose: the hash (XXH3, 128 bits) by which the host tells files and pictures apart, and the 16
// bytes as which it is kept and travels.
// Thread: any.
// Failure: bytes of another length give nothing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/hash.h"

namespace host {

using ContentHash = common::Hash128;

ContentHash contentHashOfText(std::string_view text);
std::string bytesOfContentHash(const ContentHash& hash);
std::optional<ContentHash> contentHashOfBytes(std::string_view bytes);

}  // namespace host
