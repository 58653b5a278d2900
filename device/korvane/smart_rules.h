// Purpose: the rules of a smart playlist: what its tracks have in common, how many and in which
//          order; and their stored form (docs/formats.md, "Smart playlist rules").
// Calling thread: any.
// Failure: bytes that are no rules give nothing; they may come from anywhere.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/values.h"

namespace korvane {

// Numbers are those of the stored form. From FirstTextField on the values are texts.
enum class SmartField : std::uint8_t {
    MediaType = 1,  // bits of KV3MediaType
    Rating = 2,     // 0 to 100
    PlayCount = 3,
    SkipCount = 4,
    LastPlayed = 5,  // this to DateAdded: seconds since 1970, 0 never
    LastSkipped = 6,
    DateAdded = 7,
    Year = 8,
    TotalTime = 9,   // milliseconds
    TotalSize = 10,  // bytes
    BitRate = 11,    // bits a second
    Bpm = 12,
    DiscNumber = 13,
    TrackNumber = 14,
    Compilation = 15,  // 0 or 1
    SeasonNumber = 16,
    Title = 64,
    Artist = 65,
    Album = 66,
    AlbumArtist = 67,
    Genre = 68,
    Composer = 69,
    Comment = 70,
    Grouping = 71,
    Show = 72,
};
inline constexpr std::uint8_t FirstTextField = 64;

enum class SmartOperation : std::uint8_t {
    Equal = 1,  // the codes of KV3Comparison, for numbers; Equal and NotEqual for texts too
    NotEqual = 2,
    Greater = 3,
    GreaterOrEqual = 4,
    Less = 5,
    LessOrEqual = 6,
    AnyBits = 10,
    NoBits = 11,
    Contains = 20,  // texts, without regard to the case of A to Z
    DoesNotContain = 21,
    BeginsWith = 22,
    EndsWith = 23,
    WithinLast = 30,  // dates: the value is a number of seconds
    NotWithinLast = 31,
};

struct SmartCondition {
    SmartField field = SmartField::MediaType;
    SmartOperation operation = SmartOperation::Equal;
    std::variant<std::int64_t, std::string> value;

    bool operator==(const SmartCondition&) const = default;
};

struct SmartRules {
    bool matchesAny = false;  // else all conditions
    std::vector<SmartCondition> conditions;
    std::uint32_t limit = 0;  // tracks; 0: no limit
    // Of the tracks, and of which ones a limit keeps. Ties keep the library's own order.
    SmartField order = SmartField::DateAdded;
    bool isDescending = false;

    bool operator==(const SmartRules&) const = default;
};

inline constexpr std::size_t MaximumSmartConditions = 200;
inline constexpr std::size_t MaximumSmartTextBytes = 1'024;

// Absent for rules that have no meaning (a text compared with a number, say) or exceed a limit.
std::optional<platform::Data> encodeSmartRules(const SmartRules& rules);
// Absent for bytes of another format, cut short, without meaning or beyond a limit.
std::optional<SmartRules> decodeSmartRules(std::span<const std::uint8_t> bytes);

}  // namespace korvane
