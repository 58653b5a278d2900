// The framing constants and errors of "QORX" streams; docs/formats.md describes the whole format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace common {

inline constexpr std::string_view QorxMagic = "QORX";
inline constexpr std::uint8_t QorxVersion = 1;
// Magic and version byte.
inline constexpr std::size_t QorxPrologueSize = 5;
// XXH3-64 over all bytes before it, little-endian.
inline constexpr std::size_t QorxChecksumSize = 8;
// A record's longest form, without its length.
inline constexpr std::uint32_t QorxRecordLimit = 16u << 20;
// Most elements (playlist items, play statistics, field changes) of one record.
inline constexpr std::size_t QorxElementLimit = 1'000'000;

inline constexpr std::string_view QorxErrorDomain = "QORXErrorDomain";
enum QorxErrorCode : std::int64_t {
    QorxErrorDamaged = 1,       // not the format, truncated, or its checksum or counts are wrong
    QorxErrorNewerVersion = 2,  // a version that this reader does not know
    QorxErrorTooLarge = 3,      // beyond a record's limit or the caller's limits
};

}  // namespace common
