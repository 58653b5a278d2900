// Folders, files and states for tests, made in a line.
#pragma once

#include <cstdint>
#include <string>

#include "host/scan/scanner.h"
#include "host/state/folder_state.h"

namespace host::test {

inline MediaFile mediaFile(const std::string& path, std::int64_t size = 1000,
                           std::int64_t modified = 1) {
    MediaFile file;
    file.stamp = {path, size, modified, static_cast<std::uint64_t>(size) + 7, 1};
    file.tags.title = path;
    file.mediaType = 8;
    return file;
}

inline KnownFile knownFile(std::int64_t syncId, const std::string& path,
                           Presence presence = Presence::Present) {
    KnownFile file;
    file.syncId = syncId;
    file.globalId = syncId + 1'000'000;
    file.media = mediaFile(path);
    file.presence = presence;
    file.contentHash = ContentHash{1, static_cast<std::uint8_t>(syncId)};
    return file;
}

}  // namespace host::test
