#include "host/session/replaced_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/scan/file_names.h"

namespace host {

using platform::OptionalError;

ReplacedFile::~ReplacedFile() {
    if (_fd)
        ::unlink(_partialPath.c_str());
}

OptionalError ReplacedFile::open() {
    struct stat status {};
    if (::stat(_path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return failure();
    }
    _partialPath = fmt::format("{}.part-{}", _path, ::getpid());
    _fd.reset(
        ::open(_partialPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!_fd)
        return failure();
    return std::nullopt;
}

OptionalError ReplacedFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(_fd.get(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            return failure();
        if (written > 0)
            bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return std::nullopt;
}

OptionalError ReplacedFile::commit() {
    if (::fsync(_fd.get()) != 0 || ::rename(_partialPath.c_str(), _path.c_str()) != 0)
        return failure();
    _fd.reset();
    const std::string folder(folderOfPath(_path));
    const std::string directory = _path.starts_with('/') && folder.empty() ? "/"
                                  : folder.empty()                         ? "."
                                                                           : folder;
    const common::UniqueFd held(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!held || ::fsync(held.get()) != 0)
        return failure();
    return std::nullopt;
}

platform::Error ReplacedFile::failure() const {
    const int number = errno;
    return platform::Error(platform::POSIXErrorDomain, number,
                           fmt::format("{}: {}", displayText(_path), std::strerror(number)));
}

}  // namespace host
