// Purpose: text of playlists in older encodings, made UTF-8.
// Thread: any.
// Failure: what an encoding has no character for becomes U+FFFD.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

bool isUtf8(std::string_view text);
// Windows code page 1252, of which Latin-1 is all but a part.
std::string utf8FromWindowsLatin(std::string_view text);
// UTF-16 of either byte order by its mark; nothing when there is none, or it is damaged.
std::optional<std::string> utf8FromMarkedUtf16(std::string_view text);

}  // namespace host
