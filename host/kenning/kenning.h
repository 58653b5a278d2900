// Purpose: makes the recommendation data (Kenning) that travels with music: per track a metadata
// blob and a blob of the tracks most like it. docs/formats.md, "Kenning data", has the bytes.
// Thread: any; everything here is a function of its arguments.
// Failure: decoding hostile bytes gives nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/kenning/similarities.h"
#include "host/scan/media_file.h"
#include "platform/values.h"

namespace host {

using common::decodeKenningSimilarities;
using common::KenningMaximumSimilar;
using common::KenningSimilarity;
using common::KenningVersion;

// A track to describe. Ids are stable over runs: the global id of the host's state.
struct KenningTrack {
    std::int64_t kenningId = 0;
    const MediaFile* file = nullptr;  // borrowed
};

// What the metadata blob holds.
struct KenningMetadata {
    std::int64_t kenningId = 0;
    std::string artist;
    std::string album;
    std::string genre;
    std::int32_t year = 0;
    std::int32_t beatsPerMinute = 0;
    std::int64_t durationMilliseconds = 0;

    bool operator==(const KenningMetadata&) const = default;
};

struct KenningRecord {
    std::int64_t kenningId = 0;
    platform::Data metadata;
    platform::Data similarities;
    // XXH3 (64 bits) over both blobs, as a signed number: what the import gives as pending.
    std::int64_t checksum = 0;

    // {"kenning_metadata", "kenning_similarities"}: the root of the file that is sent.
    platform::Value plist() const;
};

// Records of the music and music videos among the tracks, in the order given. Playlists hold
// places in `tracks`; neighbours in one are alike. Deterministic, and bounded work per track
// whatever the size of the collection.
std::vector<KenningRecord> makeKenningRecords(
    std::span<const KenningTrack> tracks, std::span<const std::vector<std::size_t>> playlists = {});

std::optional<KenningMetadata> decodeKenningMetadata(std::span<const std::uint8_t> blob);
std::int64_t kenningChecksum(const platform::Data& metadata, const platform::Data& similarities);

// The one configuration record: {"data", "default_num_results", "min_num_results", "version"}.
platform::Value kenningConfiguration();

}  // namespace host
