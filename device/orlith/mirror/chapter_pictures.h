// The pictures of a track's chapters, by the names that are the same on every device.
//
// Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "device/orlith/mirror/peer_library.h"
#include "platform/media_library.h"

namespace orlith {

struct ChapterPicture {
    std::string cacheID;
    std::string path;  // absolute device path; "" when this device has no such picture
};

// Each name once, in the order of the chapters. A host's pictures lie under the chapter's time, a
// pulled one's under its name.
std::vector<ChapterPicture> chapterPictures(MediaLibraryFramework& library, PeerLibrary& pictures,
                                            KV3Track& track);

}  // namespace orlith
