// Track properties by name, and predicates printed and evaluated.
#pragma once

#include <functional>
#include <string>

#include "platform/media_library_properties.h"

namespace support {

// The property's name without "KV3TrackProperty".
std::string propertyName(KV3TrackProperty property);

// e.g. "any(all(StoreVeskaID == 0, SyncID != 0), NeedsRestore == 1)".
std::string describe(const KV3Predicate& predicate);

// Whether a track with these values meets the predicate; null compares as 0.
bool matches(const KV3Predicate& predicate,
             const std::function<platform::Value(KV3TrackProperty)>& valueOf);

}  // namespace support
