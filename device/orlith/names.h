// Names that come from a host, checked before they become part of a path.
//
// Any thread; plain functions that never fail.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orlith {

// The decimal text of a signed 64-bit number in its one form ("-5", never "+5", "05" or " 5");
// absent for anything else.
std::optional<std::int64_t> parseIdentifier(std::string_view text);

// As an asset's staged artwork is named: an identifier, or a chapter's "<identifier>-<ms>".
bool isArtworkIdentifier(std::string_view text);

// As a chapter's picture is named on every device: 1 to 128 letters, digits, "-" and "_".
bool isArtworkCacheID(std::string_view text);

// One to eight of a-z and 0-9.
bool isFileExtension(std::string_view text);

// "Sync_" ... ".plist": at most 255 bytes of valid UTF-8 without slashes or control characters.
bool isSettingsFileName(std::string_view text);

// The text with every byte that is no UTF-8 replaced by "?", as a message needs it.
std::string cleanUTF8(std::string text);

// A host's own words for a log line or a message: control characters become "?", and all beyond
// 128 bytes is cut off.
std::string printable(std::string_view text);

}  // namespace orlith
