// Purpose: a file that comes from the device, written beside its place and moved there once it is
// whole. Nothing that lies there is ever overwritten.
// Thread: one at a time.
// Ownership: removes what it wrote unless finish() succeeded.
// Failure: the first one is kept and makes the rest do nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "host/scan/content_hash.h"

namespace host {

class UploadFile {
public:
    // `name` is a wish: what cannot stand in a file name is replaced, and a number is added when
    // the name is taken.
    UploadFile(std::string directory, std::string_view name);
    ~UploadFile();
    UploadFile(const UploadFile&) = delete;
    UploadFile& operator=(const UploadFile&) = delete;

    void write(std::string_view bytes);
    // Compares the hash, when there is one, syncs and moves the file into place.
    void finish(const std::optional<ContentHash>& expected);
    void fail(std::string_view reason);

    const std::string& failure() const { return _failure; }
    // Where the file lies once finished.
    const std::string& path() const { return _path; }

private:
    void moveIntoPlace();

    std::string _directory;
    std::string _name;
    std::string _partialPath;
    std::string _path;
    std::string _failure;
    common::UniqueFd _fd;
    common::XXH3Stream _hasher;
};

// A name that can be a file's: no slash, no control characters, not hidden, at most 200 bytes.
std::string safeFileName(std::string_view name);
// 0 when there is no such file.
std::int64_t fileSize(const std::string& path);

}  // namespace host
