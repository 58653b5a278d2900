// Purpose: reads one media file's tags, streams, chapters and pictures. Runs in a worker.
// Thread: any.
// Failure: a file that cannot be read has its reason; a picture that is not there is absent.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/scan/media_file.h"

namespace host {

// Everything but the stamp, the kind and the content hash.
MediaFile readMediaFile(const std::string& path);

// The bytes of the file's cover (`chapter` -1) or of a chapter's picture.
std::optional<std::vector<std::uint8_t>> readEmbeddedPicture(const std::string& path,
                                                             std::int32_t chapter);

}  // namespace host
