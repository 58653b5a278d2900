#include "device/orlith/backup/backup_writer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/little_endian.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t PieceSize = 1 << 20;  // bytes

platform::Data dataOf(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace

OptionalError BackupWriter::write(std::span<const std::uint8_t> bytes) {
    _all.update(bytes);
    if (_sink(bytes))
        return std::nullopt;
    return Error(platform::POSIXErrorDomain, ECANCELED, "nobody takes the backup any more");
}

OptionalError BackupWriter::begin(const BackupHead& head) {
    OptionalError error;
    const auto encoded = encodeHead(head, error);
    if (!encoded)
        return error;
    if (encoded->size() > MaximumBackupHeadSize)
        return Error(platform::POSIXErrorDomain, EFBIG, "there are too many files for one backup");
    platform::Data preamble = dataOf(BackupMagic);
    common::appendLittleEndian(preamble, BackupVersion, 4);
    common::appendLittleEndian(preamble, encoded->size(), 4);
    error = write(preamble);
    return error ? error : write(*encoded);
}

OptionalError BackupWriter::file(const BackupFile& file, int descriptor) {
    const auto changed = [&] {
        return Error(platform::POSIXErrorDomain, EAGAIN,
                     fmt::format("{} changed while it was backed up; run it again", file.path));
    };
    common::XXH3Stream hash;
    std::uint64_t left = file.size;
    // One byte more than belongs to it tells a file that has grown.
    while (true) {
        _piece.resize(std::min<std::uint64_t>(PieceSize, left + 1));
        const ssize_t count = ::read(descriptor, _piece.data(), _piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Error(platform::POSIXErrorDomain, errno,
                         fmt::format("{}: {}", file.path, Error::posix(errno).text()));
        if (count == 0)
            break;
        if (static_cast<std::uint64_t>(count) > left)
            return changed();
        const std::span<const std::uint8_t> bytes(_piece.data(), static_cast<std::size_t>(count));
        hash.update(bytes);
        if (OptionalError error = write(bytes))
            return error;
        left -= bytes.size();
    }
    if (left != 0)
        return changed();
    ++_files;
    return write(hash.digest());
}

OptionalError BackupWriter::end() {
    platform::Data mark = dataOf(BackupEndMark);
    common::appendLittleEndian(mark, _files, 8);
    if (OptionalError error = write(mark))
        return error;
    return write(_all.digest());
}

}  // namespace orlith
