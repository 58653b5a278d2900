// Purpose: what a file is for, by its name alone.
// Thread: any.
// Failure: none.
#pragma once

#include <string_view>

namespace host {

enum class FilePurpose {
    Media,             // worth opening
    UnsupportedMedia,  // sound or film that the device cannot take
    Playlist,
    Image,
    Ignored,  // hidden, of the system, or what commonly lies beside media
    Unknown,
};

// `name` is the last part of a path.
FilePurpose purposeOfFile(std::string_view name);
// Hidden folders and those that systems keep their own things in.
bool isIgnoredFolder(std::string_view name);

}  // namespace host
