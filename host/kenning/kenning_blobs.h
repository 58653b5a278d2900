// Purpose: writes the blobs that docs/formats.md, "Kenning data", describes; their readers are in
// kenning.h.
// Thread: any.
// Failure: none.
#pragma once

#include "host/kenning/kenning.h"

namespace host {

using common::encodeKenningSimilarities;

platform::Data encodeKenningMetadata(const KenningMetadata& metadata);

}  // namespace host
