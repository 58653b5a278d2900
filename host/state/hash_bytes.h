// Purpose: the 16 bytes as which a content hash is kept and travels: the high half first, the most
// significant byte of each first.
// Thread: any.
// Failure: bytes of another length give nothing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/scan/content_hash.h"

namespace host {

std::string bytesOfContentHash(const ContentHash& hash);
std::optional<ContentHash> contentHashOfBytes(std::string_view bytes);
ContentHash contentHashOfText(std::string_view text);

}  // namespace host
