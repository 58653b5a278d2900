// The bytes of one download on their way to the library: which version of the source they are of,
// how many are there, and how many survive a power cut. Bytes of two versions never meet in one
// file: it is emptied before another version is recorded, and what was written since the last sync
// does not count when it is opened again.
//
// One thread at a time. Errors are of POSIXErrorDomain: ENOSPC when the device is full, EFBIG for
// too many bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "common/unique_fd.h"
#include "platform/errors.h"

namespace device {
class RootedFileSystem;
}

namespace downloads {

struct StagingLimits {
    std::uint64_t maximumSize = std::uint64_t{64} << 30;  // bytes of one file
    std::uint64_t reservedSpace = 1 << 20;                // bytes left free for the library
    std::uint64_t syncInterval = 8 << 20;                 // most bytes that a power cut costs
};

// A version of what a source has.
struct SourceVersion {
    std::string validator;               // "" when the source tells none: it cannot be resumed
    std::optional<std::uint64_t> total;  // bytes
    std::string fileName;                // see mediaFileName
};

class StagedDownload {
public:
    // What is known of earlier attempts.
    struct Kept {
        std::string validator;
        std::optional<std::uint64_t> total;
        std::uint64_t bytes = 0;
    };
    // Records, durably, a version that begins (bytes 0) or how far the present one has come.
    struct Keeper {
        std::function<void(const SourceVersion&)> begun;
        std::function<void(std::uint64_t bytes)> advanced;
    };

    // The file at `path`; its directory exists. Null on failure.
    static std::unique_ptr<StagedDownload> open(device::RootedFileSystem& files, std::string path,
                                                const Kept& kept, const StagingLimits& limits,
                                                Keeper keeper, platform::OptionalError& error);

    std::uint64_t received() const { return _received; }
    // "" while there is nothing that could be continued.
    const std::string& validator() const { return _validator; }
    const std::optional<std::uint64_t>& total() const { return _total; }

    // Throws what is there away; bytes of this version follow.
    platform::OptionalError beginOver(const SourceVersion& version);
    // The source goes on with the version that is there, which has that many bytes in all.
    platform::OptionalError goOn(std::optional<std::uint64_t> total);
    platform::OptionalError write(std::string_view bytes);
    // Waits until all that was written is on the disk, and records it.
    platform::OptionalError sync();
    // Whether as many bytes are there as the source has; so far as it told.
    bool isWhole() const { return _received > 0 && (!_total || *_total == _received); }

private:
    StagedDownload(device::RootedFileSystem& files, std::string path, const StagingLimits& limits,
                   Keeper keeper);
    platform::OptionalError checkTotal();
    platform::OptionalError checkSpace(std::uint64_t needed);
    platform::OptionalError keepFirst(std::uint64_t bytes);

    device::RootedFileSystem& _files;
    const std::string _path;
    const StagingLimits _limits;
    const Keeper _keeper;
    common::UniqueFd _fd;
    std::string _validator;
    std::optional<std::uint64_t> _total;
    std::uint64_t _received = 0;
    std::uint64_t _synced = 0;
    std::uint64_t _spaceChecked = 0;  // _received may come to this before space is looked at again
};

}  // namespace downloads
