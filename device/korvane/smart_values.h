// Purpose: values in the rules of smart playlists, between text and stored number.
// Calling thread: any.
// Failure: text that is none gives nothing; what would be right is said by expectedSmartValue.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "device/korvane/smart_terms.h"

namespace korvane {

// For every kind but Text.
std::optional<std::int64_t> smartNumberOfText(SmartKind kind, std::string_view text);
std::string textOfSmartNumber(SmartKind kind, std::int64_t number);

// "2 weeks" as seconds, and back.
std::optional<std::int64_t> smartSecondsOfText(std::string_view text);
std::string textOfSmartSeconds(std::int64_t seconds);

// In plain words, to follow the field's name.
const char* expectedSmartValue(SmartKind kind);

}  // namespace korvane
