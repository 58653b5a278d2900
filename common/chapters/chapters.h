// Purpose: a track's chapters and their flattened form, which hosts write and devices read.
//          docs/formats.md, "Chapter table of contents", describes the bytes.
// Calling thread: any.
// Failure: bytes that are no table of contents give nothing; they may come from anywhere.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/values.h"

namespace common {

struct Chapter {
    std::uint64_t startMs = 0;   // milliseconds from the track's beginning
    std::string title;           // UTF-8; may be empty
    std::string artworkCacheID;  // names its picture on every device; empty when it has none

    bool operator==(const Chapter&) const = default;
};

inline constexpr std::size_t MaximumChapters = 10'000;
inline constexpr std::size_t MaximumChapterTextBytes = 4'096;
inline constexpr std::size_t MaximumChapterDataBytes = 1u << 20;

// In order of their starts, whatever order they come in. Absent when a limit is exceeded.
std::optional<platform::Data> encodeChapters(std::vector<Chapter> chapters);
// Absent for bytes of another format, cut short, out of order or beyond a limit. Nothing is
// reserved on the word of a count.
std::optional<std::vector<Chapter>> decodeChapters(std::span<const std::uint8_t> bytes);

}  // namespace common
