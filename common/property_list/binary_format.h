// The constants of the binary format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace common::property_list {

inline constexpr std::string_view binaryMagic = "bplist00";
inline constexpr std::size_t trailerSize = 32;

// The high half of an object's first byte.
enum class Marker : std::uint8_t {
    Simple = 0x00,  // the low half is a constant
    Integer = 0x10,
    Real = 0x20,
    Date = 0x30,
    Data = 0x40,
    Ascii = 0x50,
    Utf16 = 0x60,
    Utf8 = 0x70,
    Array = 0xa0,
    OrderedSet = 0xb0,
    Set = 0xc0,
    Dictionary = 0xd0
};

inline constexpr std::uint8_t falseMarker = 0x08;
inline constexpr std::uint8_t trueMarker = 0x09;
// In the low half of the first byte: the count follows as an integer object.
inline constexpr std::uint8_t countFollows = 15;
// 2001-01-01T00:00:00Z, from which dates count, in seconds since 1970.
inline constexpr double binaryDateEpoch = 978307200;

}  // namespace common::property_list
