// Whether bytes begin as media files do, so that a web page that a server sent instead of a song is
// not taken for one. A pure function over untrusted bytes.
#pragma once

#include <cstdint>
#include <span>

namespace downloads {

// How much of a file tells what it is, in bytes.
inline constexpr std::size_t TellingBytes = 4096;

// `head` is the file's first TellingBytes, or all of it.
bool beginsAsMedia(std::span<const std::uint8_t> head);

}  // namespace downloads
