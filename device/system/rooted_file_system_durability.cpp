// What the device's own services need beside the platform's operations: descriptors, replacing
// renames and durable writes.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include <fmt/format.h>

#include "common/random_id.h"
#include "device/system/posix_errors.h"
#include "device/system/rooted_file_system.h"

namespace device {
namespace {

using platform::OptionalError;

constexpr unsigned fileMode = 0644;

int writeAll(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return written < 0 ? errno : EIO;
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return 0;
}

// The directory part of a device path.
std::string directoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

}  // namespace

common::UniqueFd RootedFileSystem::openFile(const std::string& path, int flags, unsigned mode,
                                            OptionalError* error) {
    common::UniqueFd file;
    int failed = _root.open(path, flags | O_NONBLOCK | O_NOCTTY, mode, file);
    struct stat status {};
    if (!failed && ::fstat(file.get(), &status) != 0)
        failed = errno;
    if (!failed && !S_ISREG(status.st_mode))
        failed = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    storePosixError(failed, error);
    return failed ? common::UniqueFd() : std::move(file);
}

common::UniqueFd RootedFileSystem::openTemporary(const std::string& directory, std::string& path,
                                                 OptionalError* error) {
    path = fmt::format("{}/{}{:016x}", directory, TemporaryPrefix, common::randomPositiveId());
    return openFile(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, fileMode, error);
}

OptionalError RootedFileSystem::renameReplacing(const std::string& from, const std::string& to) {
    RootDirectory::Place source, target;
    if (const int failed = placeBoth(from, to, source, target))
        return posixError(failed);
    const int result = ::renameat(source.parent.get(), source.name.c_str(), target.parent.get(),
                                  target.name.c_str());
    return posixError(result == 0 ? 0 : errno);
}

OptionalError RootedFileSystem::syncFile(const std::string& path) {
    OptionalError error;
    const common::UniqueFd file = openFile(path, O_RDONLY, 0, &error);
    if (!file)
        return error;
    return posixError(::fdatasync(file.get()) == 0 ? 0 : errno);
}

OptionalError RootedFileSystem::syncDirectory(const std::string& path) {
    common::UniqueFd directory;
    if (const int failed = _root.open(path, O_RDONLY | O_DIRECTORY, 0, directory))
        return posixError(failed);
    return posixError(::fsync(directory.get()) == 0 ? 0 : errno);
}

OptionalError RootedFileSystem::writeFileDurably(const std::string& path,
                                                 std::span<const std::uint8_t> bytes) {
    const std::string directory = directoryOf(path);
    std::string temporary;
    OptionalError error;
    const common::UniqueFd file = openTemporary(directory, temporary, &error);
    if (!file)
        return error;
    int failed = writeAll(file.get(), bytes);
    if (!failed && ::fdatasync(file.get()) != 0)
        failed = errno;
    error = failed ? posixError(failed) : renameReplacing(temporary, path);
    if (error) {
        unlink(temporary);
        return error;
    }
    return syncDirectory(directory);
}

std::optional<std::uint64_t> RootedFileSystem::freeSpace(const std::string& path,
                                                         OptionalError* error) {
    common::UniqueFd item;
    struct statvfs status {};
    int failed = _root.open(path, O_PATH, 0, item);
    if (!failed && ::fstatvfs(item.get(), &status) != 0)
        failed = errno;
    storePosixError(failed, error);
    if (failed)
        return std::nullopt;
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

std::string RootedFileSystem::realPath(const std::string& devicePath) const {
    return _root.realPath(devicePath);
}

}  // namespace device
