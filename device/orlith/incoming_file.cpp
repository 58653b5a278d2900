#include "device/orlith/incoming_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t ReadSize = 1 << 18;

OptionalError failure(int errorNumber, std::string text) {
    return Error(platform::POSIXErrorDomain, errorNumber, text);
}

// Hashes at most `length` bytes from the start; answers how many there were.
std::uint64_t hashFile(int fd, std::uint64_t length, common::XXH3Stream& hasher) {
    std::vector<std::uint8_t> buffer(ReadSize);
    std::uint64_t done = 0;
    while (done < length) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), length - done));
        const ssize_t count = ::pread(fd, buffer.data(), wanted, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        hasher.update({buffer.data(), static_cast<std::size_t>(count)});
        done += static_cast<std::uint64_t>(count);
    }
    return done;
}

}  // namespace

std::string hashText(const common::Hash128& hash) {
    return std::string(hash.begin(), hash.end());
}

IncomingFile::IncomingFile(device::RootedFileSystem& files, std::string path, std::uint64_t size)
    : _files(files), _path(std::move(path)), _size(size) {}

std::unique_ptr<IncomingFile> IncomingFile::open(device::RootedFileSystem& files, std::string path,
                                                 std::uint64_t size, std::uint64_t offset,
                                                 OptionalError& error) {
    std::unique_ptr<IncomingFile> file(new IncomingFile(files, std::move(path), size));
    const auto free = files.freeSpace(file->_path.substr(0, file->_path.rfind('/')), &error);
    if (!free)
        return nullptr;
    if (offset > size) {
        error = failure(EFBIG, "the file is to go on beyond its end");
        return nullptr;
    }
    if (*free < ReservedSpace || *free - ReservedSpace < size - offset) {
        error = failure(ENOSPC, fmt::format("the device is full: {} bytes to come, {} free",
                                            size - offset, *free));
        return nullptr;
    }
    file->_fd = files.openFile(file->_path, O_RDWR | O_CREAT, 0600, &error);
    if (!file->_fd)
        return nullptr;
    error = file->keepPrefix(offset);
    return error ? nullptr : std::move(file);
}

OptionalError IncomingFile::keepPrefix(std::uint64_t length) {
    struct stat status {};
    if (::fstat(_fd.get(), &status) != 0)
        return Error::posix(errno);
    if (static_cast<std::uint64_t>(status.st_size) < length)
        return failure(ESPIPE, "less of the file was kept than the host means to go on from");
    if (::ftruncate(_fd.get(), static_cast<off_t>(length)) != 0)
        return Error::posix(errno);
    _written = hashFile(_fd.get(), length, _hasher);
    return _written == length ? OptionalError() : Error::posix(EIO);
}

OptionalError IncomingFile::write(std::string_view bytes) {
    if (bytes.size() > _size - _written)
        return failure(EFBIG, fmt::format("more than the announced {} bytes came", _size));
    _hasher.update({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(_fd.get(), bytes.data(), bytes.size(), static_cast<off_t>(_written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Error::posix(errno);
        _written += static_cast<std::uint64_t>(count);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

OptionalError IncomingFile::finish(std::string_view expectedHash) {
    if (_written != _size)
        return failure(EMSGSIZE, fmt::format("{} bytes came of the announced {}", _written, _size));
    if (!expectedHash.empty() && hashText(_hasher.digest()) != expectedHash)
        return failure(EBADMSG, "what arrived is not what was sent: the content's hash differs");
    ::sync_file_range(_fd.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    return std::nullopt;
}

OptionalError IncomingFile::sync() {
    if (::fdatasync(_fd.get()) != 0)
        return Error::posix(errno);
    return std::nullopt;
}

OptionalError IncomingFile::syncWithName() {
    if (::fsync(_fd.get()) != 0)
        return Error::posix(errno);
    return std::nullopt;
}

OptionalError IncomingFile::moveTo(const std::string& path) {
    if (OptionalError error = _files.moveItem(_path, path))
        return error;
    _path = path;
    return std::nullopt;
}

void IncomingFile::remove() {
    _files.unlink(_path);
}

FilePrefix readPrefix(device::RootedFileSystem& files, const std::string& path) {
    FilePrefix prefix;
    const common::UniqueFd fd = files.openFile(path, O_RDONLY, 0, nullptr);
    if (!fd)
        return prefix;
    common::XXH3Stream hasher;
    prefix.length = hashFile(fd.get(), UINT64_MAX, hasher);
    prefix.hash = hasher.digest();
    return prefix;
}

}  // namespace orlith
