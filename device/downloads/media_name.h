// What a downloaded file is called: taken from what its source says, and made harmless. Pure
// functions over untrusted text.
#pragma once

#include <string>
#include <string_view>

namespace downloads {

// The last component of a path, or the file name of a Content-Disposition field, as a name without
// slashes, control characters or dots in front, valid UTF-8 of at most 200 bytes; "" when nothing
// is left.
std::string harmlessName(std::string_view name);
// The file name in a Content-Disposition field's value, as it stands there; "" when there is none.
std::string dispositionFileName(std::string_view field);
// The name of a file from what is known: the field Content-Disposition, the path of its address,
// the field Content-Type. Always has an extension that media files have ("mp3" at worst).
std::string mediaFileName(std::string_view disposition, std::string_view path,
                          std::string_view contentType);

// "song.mp3" is "song" and "mp3" (lower case; "" when there is none).
std::string nameStem(std::string_view fileName);
std::string nameExtension(std::string_view fileName);

}  // namespace downloads
