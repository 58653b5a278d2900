// Purpose: the rules of smart playlists as people write and read them:
//              rating >= 4 and genre is Jazz
//              added in the last 2 weeks and play-count = 0
//              artist contains "Field" or album is "Harbour Lights"
//          Conditions are joined by "and" or by "or", not by both. `all` alone asks for every
//          track.
// Calling thread: any.
// Failure: a refusal says in plain words what is wrong, and below it where.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "device/korvane/smart_rules.h"
#include "platform/errors.h"

namespace korvane {

// Bytes of rules and of a limit.
inline constexpr std::size_t LongestRules = 16'384;
inline constexpr std::int64_t LargestSmartLimit = 1'000'000;

// `limit` may be empty, or how many tracks, and the first by what: "25", "25 by rating", "25 by
// lowest play-count". Without a word the highest numbers, latest dates and first letters come
// first.
std::optional<SmartRules> smartRulesOfText(std::string_view text, std::string_view limit,
                                           platform::OptionalError& error);

// What smartRulesOfText understands as the same rules, if it would have made them.
std::string textOfSmartRules(const SmartRules& rules);
// Empty without a limit.
std::string textOfSmartLimit(const SmartRules& rules);

}  // namespace korvane
