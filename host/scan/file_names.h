// Purpose: comparing and showing file names, which are any bytes.
// Thread: any.
// Failure: none; what is no UTF-8 is compared byte by byte.
#pragma once

#include <string>
#include <string_view>

namespace host {

// The key under which two spellings of one name meet: NFC where the name is UTF-8, else its bytes.
std::string normalizedName(std::string_view name);
// The same without regard to case.
std::string caseFoldedName(std::string_view name);
// For people and for tags: valid UTF-8, what is none replaced by U+FFFD, control characters by a
// space, cut to at most `limit` bytes at a character's boundary.
std::string displayText(std::string_view bytes, std::size_t limit = 4096);

// Parts of a path with '/' between them. The extension is in lower case, without its dot.
std::string_view folderOfPath(std::string_view path);
std::string_view fileNameOfPath(std::string_view path);
std::string_view stemOfPath(std::string_view path);
std::string extensionOfPath(std::string_view path);

}  // namespace host
