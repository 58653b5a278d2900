// Purpose: writes the blobs that docs/formats.md, "Kenning data", describes; their readers are in
// kenning.h.
// Thread: any.
// Failure: none.
#pragma once

#include <span>

#include "host/kenning/kenning.h"

namespace host {

platform::Data encodeKenningMetadata(const KenningMetadata& metadata);
// At most KenningMaximumSimilar, the most alike first.
platform::Data encodeKenningSimilarities(std::span<const KenningSimilarity> similarities);

}  // namespace host
