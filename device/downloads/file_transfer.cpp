#include "device/downloads/file_transfer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "device/downloads/media_name.h"

namespace downloads {
namespace {

constexpr std::size_t PieceSize = 1 << 18;  // bytes

}  // namespace

FileTransfer::FileTransfer(const std::string& path, StagedDownload& staged) : _staged(staged) {
    begin(path);
}

void FileTransfer::begin(const std::string& path) {
    // Does not wait for the far end of a pipe.
    _file.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!_file || ::fstat(_file.get(), &status) != 0) {
        const int number = errno;
        end(Outcome::Kind::Refused,
            fmt::format("The file cannot be opened: {}", platform::Error::posix(number).text()));
        _outcome->isGone = number == ENOENT || number == ENOTDIR;
        return;
    }
    if (!S_ISREG(status.st_mode))
        return end(Outcome::Kind::Refused, "The address names no regular file.");
    _size = static_cast<std::uint64_t>(status.st_size);
    if (_size == 0)
        return end(Outcome::Kind::Refused, "The file is empty.");
    _validator = validator();
    platform::OptionalError error;
    if (_staged.validator() == _validator)
        error = _staged.goOn(_size);
    else
        error = _staged.beginOver({_validator, _size, mediaFileName("", path, "")});
    if (error)
        end(Outcome::Kind::Refused, error->text());
}

std::string FileTransfer::validator() const {
    struct stat status {};
    if (::fstat(_file.get(), &status) != 0)
        return {};
    return fmt::format("file:{}:{}:{}:{}.{:09}", status.st_dev, status.st_ino, status.st_size,
                       status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

bool FileTransfer::step() {
    if (!_outcome && _staged.received() < _size)
        copyPiece();
    if (!_outcome && _staged.received() == _size)
        finish();
    return !_outcome;
}

void FileTransfer::copyPiece() {
    std::vector<char> piece(std::min<std::uint64_t>(PieceSize, _size - _staged.received()));
    const ssize_t count =
        ::pread(_file.get(), piece.data(), piece.size(), static_cast<off_t>(_staged.received()));
    if (count < 0 && errno == EINTR)
        return;
    if (count < 0)
        return end(Outcome::Kind::Passing, fmt::format("The file cannot be read: {}",
                                                       platform::Error::posix(errno).text()));
    if (count == 0)
        return end(Outcome::Kind::Changed, "The file became shorter while it was read.");
    if (const auto error =
            _staged.write(std::string_view(piece.data(), static_cast<std::size_t>(count))))
        end(Outcome::Kind::Refused, error->text());
}

void FileTransfer::finish() {
    if (validator() != _validator)
        end(Outcome::Kind::Changed, "The file was changed while it was read.");
    else
        end(Outcome::Kind::Complete, "");
}

}  // namespace downloads
