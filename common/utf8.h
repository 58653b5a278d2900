// UTF-8, checked strictly: no overlong forms, surrogates or values above U+10FFFF.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace common {

// Takes the first character off a text that is not empty; absent when it is malformed.
std::optional<char32_t> takeCharacter(std::string_view& text);
bool isUtf8(std::string_view text);
// `character` is at most U+10FFFF and no surrogate.
void appendUtf8(std::string& text, char32_t character);

}  // namespace common
