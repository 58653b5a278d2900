#include "device/downloads/staged_download.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "device/system/rooted_file_system.h"

namespace downloads {
namespace {

using platform::Error;
using platform::OptionalError;

// How much is written before the free space is looked at again.
constexpr std::uint64_t SpaceCheckInterval = 1 << 20;

Error failure(int errorNumber, std::string_view text) {
    return {platform::POSIXErrorDomain, errorNumber, text};
}

}  // namespace

StagedDownload::StagedDownload(device::RootedFileSystem& files, std::string path,
                               const StagingLimits& limits, Keeper keeper)
    : _files(files), _path(std::move(path)), _limits(limits), _keeper(std::move(keeper)) {}

std::unique_ptr<StagedDownload> StagedDownload::open(device::RootedFileSystem& files,
                                                     std::string path, const Kept& kept,
                                                     const StagingLimits& limits, Keeper keeper,
                                                     OptionalError& error) {
    std::unique_ptr<StagedDownload> staged(
        new StagedDownload(files, std::move(path), limits, std::move(keeper)));
    staged->_fd = files.openFile(staged->_path, O_RDWR | O_CREAT, 0600, &error);
    if (!staged->_fd)
        return nullptr;
    struct stat status {};
    if (::fstat(staged->_fd.get(), &status) != 0) {
        error = Error::posix(errno);
        return nullptr;
    }
    const bool canGoOn = !kept.validator.empty() && kept.bytes > 0 &&
                         kept.bytes <= static_cast<std::uint64_t>(status.st_size);
    if (canGoOn) {
        staged->_validator = kept.validator;
        staged->_total = kept.total;
    }
    error = staged->keepFirst(canGoOn ? kept.bytes : 0);
    return error ? nullptr : std::move(staged);
}

OptionalError StagedDownload::keepFirst(std::uint64_t bytes) {
    if (::ftruncate(_fd.get(), static_cast<off_t>(bytes)) != 0)
        return Error::posix(errno);
    _received = _synced = _spaceChecked = bytes;
    return std::nullopt;
}

OptionalError StagedDownload::beginOver(const SourceVersion& version) {
    if (OptionalError error = keepFirst(0))
        return error;
    _validator = version.validator;
    _total = version.total;
    _keeper.begun(version);
    return checkTotal();
}

OptionalError StagedDownload::goOn(std::optional<std::uint64_t> total) {
    if (total)
        _total = total;
    return checkTotal();
}

OptionalError StagedDownload::checkTotal() {
    if (!_total)
        return std::nullopt;
    if (*_total > _limits.maximumSize)
        return failure(EFBIG,
                       fmt::format("The file is larger than a download may be: {} bytes, at most "
                                   "{}.",
                                   *_total, _limits.maximumSize));
    return checkSpace(*_total - std::min(*_total, _received));
}

OptionalError StagedDownload::checkSpace(std::uint64_t needed) {
    OptionalError error;
    const auto free = _files.freeSpace(_path.substr(0, _path.rfind('/')), &error);
    if (!free)
        return error;
    if (*free < _limits.reservedSpace || *free - _limits.reservedSpace < needed)
        return failure(
            ENOSPC, fmt::format("The device is full: {} bytes to come, {} free.", needed, *free));
    return std::nullopt;
}

OptionalError StagedDownload::write(std::string_view bytes) {
    const std::uint64_t most = std::min(_total.value_or(UINT64_MAX), _limits.maximumSize);
    if (bytes.size() > most - std::min(most, _received))
        return failure(EFBIG, fmt::format("More than {} bytes came.", most));
    if (_received + bytes.size() > _spaceChecked) {
        if (OptionalError error = checkSpace(bytes.size()))
            return error;
        _spaceChecked = _received + bytes.size() + SpaceCheckInterval;
    }
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(_fd.get(), bytes.data(), bytes.size(), static_cast<off_t>(_received));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return failure(errno, fmt::format("The device cannot store the file: {}",
                                              Error::posix(errno).text()));
        _received += static_cast<std::uint64_t>(count);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return _received - _synced >= _limits.syncInterval ? sync() : std::nullopt;
}

OptionalError StagedDownload::sync() {
    if (_synced == _received)
        return std::nullopt;
    if (::fdatasync(_fd.get()) != 0)
        return Error::posix(errno);
    _synced = _received;
    _keeper.advanced(_synced);
    return std::nullopt;
}

}  // namespace downloads
