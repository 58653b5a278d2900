// Folders, files and states for tests, made in a line.
#pragma once

#include <cstdint>
#include <filesystem>
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
    file.contentHash = ContentHash{1, static_cast<std::uint64_t>(syncId)};
    return file;
}

// A fresh directory, removed with all it holds.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = std::filesystem::temp_directory_path() / "orlith-host-XXXXXX";
        _path = ::mkdtemp(name.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    const std::string& path() const { return _path; }

private:
    std::string _path;
};

}  // namespace host::test
