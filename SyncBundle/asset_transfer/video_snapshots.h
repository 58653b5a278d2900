// At which time of a video its cover is taken. Callable from any thread.
#pragma once

#include <cstdint>

#include "platform/media_library.h"
#include "platform/sync_daemon.h"

// Seconds into the video, or -1 for an asset that gets no snapshot. `mediaType` may be null, and is
// set only when there is a time.
double KVVideoSnapshotTimeForAsset(const ORAsset& asset, std::int64_t* mediaType);
// For an asset whose type has a time, and a track that has no cover yet.
void KVCreateVideoSnapshotIfNeeded(const ORAsset& asset, KV3Track& track);
