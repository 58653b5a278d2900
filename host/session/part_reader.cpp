#include "host/session/part_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace host {

namespace {

constexpr std::uint64_t PieceSize = 256 << 10;
constexpr const char* ChangedMeanwhile = "the file changed while it was being sent";

std::string unreadable() {
    return std::string("it cannot be read: ") + std::strerror(errno);
}

// Fills `data` as far as the file goes; false on an error (errno).
bool readFully(int fd, std::string& data) {
    std::size_t filled = 0;
    while (filled < data.size()) {
        const ssize_t count = ::read(fd, data.data() + filled, data.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        filled += static_cast<std::size_t>(count);
    }
    data.resize(filled);
    return true;
}

}  // namespace

std::string PartReader::open(std::uint64_t offset) {
    if (_part.path.empty()) {
        _size = _part.bytes.size();
        return {};
    }
    _size = static_cast<std::uint64_t>(_part.size);
    _fd.reset(::open(_part.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!_fd)
        return unreadable();
    if (!isUnchanged())
        return "the file changed after the folder was read";
    std::string skipped;
    while (_position < offset)
        if (std::string failure = readPiece(offset, skipped); !failure.empty())
            return failure;
    return {};
}

PartReader::Piece PartReader::next() {
    Piece piece;
    piece.failure = readPiece(_size, piece.data);
    piece.last = !piece.failure.empty() || _position == _size;
    const bool arrived = piece.failure.empty() && piece.last;
    if (arrived && ((_fd && !isUnchanged()) || (_part.contentHash && *_part.contentHash != hash())))
        piece.failure = ChangedMeanwhile;
    if (!piece.failure.empty())
        piece.data.clear();
    return piece;
}

std::string PartReader::readPiece(std::uint64_t end, std::string& data) {
    const std::size_t wanted = std::min(PieceSize, end - _position);
    if (_fd) {
        data.resize(wanted);
        if (!readFully(_fd.get(), data))
            return unreadable();
        if (data.size() < wanted)
            return ChangedMeanwhile;
    } else {
        data = _part.bytes.substr(_position, wanted);
    }
    _hasher.update(std::span(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()));
    _position += data.size();
    return {};
}

bool PartReader::isUnchanged() const {
    struct stat now {};
    if (::fstat(_fd.get(), &now) != 0 || !S_ISREG(now.st_mode) || now.st_size != _part.size)
        return false;
    const std::int64_t modified =
        static_cast<std::int64_t>(now.st_mtim.tv_sec) * 1'000'000'000 + now.st_mtim.tv_nsec;
    return _part.modifiedNanoseconds < 0 || modified == _part.modifiedNanoseconds;
}

}  // namespace host
