// Purpose: a MediaFile as bytes, for the host's state and for the pipe between scan and workers.
// The bytes begin with a version; a record of another version or a damaged one does not decode, and
// the file is then simply read again.
// Thread: any.
// Failure: decoding hostile bytes gives nothing; lengths and counts are bounded before memory.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/scan/media_file.h"

namespace host {

std::string encodeMediaFile(const MediaFile& file);
std::optional<MediaFile> decodeMediaFile(std::string_view bytes);

}  // namespace host
