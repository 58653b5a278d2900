// A file that arrives in pieces: bounded by its announced size, hashed while it is written, and
// continued where an earlier attempt stopped.
//
// One thread at a time. Errors are of POSIXErrorDomain: ENOSPC when the device is full, EFBIG for
// more bytes than announced, EMSGSIZE for fewer, EBADMSG when the hash differs. After an error the
// file is good for nothing but remove().
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/hash.h"
#include "common/unique_fd.h"
#include "device/system/rooted_file_system.h"
#include "platform/errors.h"

namespace orlith {

// Left free for the library's database, in bytes: a file that would take it is refused.
inline constexpr std::uint64_t ReservedSpace = 1 << 20;

// The 16 bytes as a message carries them.
std::string hashText(const common::Hash128& hash);

class IncomingFile {
public:
    // Makes or continues the file at `path` (its directory must exist): `offset` of its first bytes
    // are kept. ESPIPE when it has fewer. Null on failure.
    static std::unique_ptr<IncomingFile> open(device::RootedFileSystem& files, std::string path,
                                              std::uint64_t size, std::uint64_t offset,
                                              platform::OptionalError& error);

    platform::OptionalError write(std::string_view bytes);
    // Checks size and hash (16 bytes; an empty one is not compared) and starts the writing out, so
    // that a later sync finds most of it done.
    platform::OptionalError finish(std::string_view expectedHash);
    // Waits until the contents are on the disk.
    platform::OptionalError sync();
    // As sync, and until the file's name is where a move put it on a journalling file system.
    platform::OptionalError syncWithName();
    // A rename; fails (EEXIST) when something is at `path`.
    platform::OptionalError moveTo(const std::string& path);
    // What lies at path() now.
    void remove();

    const std::string& path() const { return _path; }
    std::uint64_t size() const { return _size; }
    // How much of it is there, from 0 to 1.
    double progress() const {
        return _size == 0 ? 1.0 : static_cast<double>(_written) / static_cast<double>(_size);
    }

private:
    IncomingFile(device::RootedFileSystem& files, std::string path, std::uint64_t size);
    platform::OptionalError keepPrefix(std::uint64_t length);

    device::RootedFileSystem& _files;
    std::string _path;
    std::uint64_t _size;
    std::uint64_t _written = 0;
    common::UniqueFd _fd;
    common::XXH3Stream _hasher;
};

// What there is of a file: its length in bytes and their hash; length 0 when there is none.
struct FilePrefix {
    std::uint64_t length = 0;
    common::Hash128 hash{};
};
FilePrefix readPrefix(device::RootedFileSystem& files, const std::string& path);

}  // namespace orlith
