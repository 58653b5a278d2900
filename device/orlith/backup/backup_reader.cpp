#include "device/orlith/backup/backup_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "common/little_endian.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t PieceSize = 1 << 20;  // bytes

}  // namespace

OptionalError BackupReader::read(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        OptionalError error;
        const std::size_t count = _source(bytes, error);
        if (error)
            return error;
        if (count == 0)
            return damagedBackup("it is cut off");
        _all.update(bytes.first(count));
        bytes = bytes.subspan(count);
    }
    return std::nullopt;
}

OptionalError BackupReader::readHash(const common::Hash128& expected, const std::string& what) {
    common::Hash128 found{};
    if (OptionalError error = read(found))
        return error;
    if (found != expected)
        return damagedBackup(what);
    return std::nullopt;
}

std::optional<BackupHead> BackupReader::readHead(OptionalError& error) {
    std::array<std::uint8_t, BackupPreambleSize> preamble{};
    error = read(preamble);
    if (error)
        return std::nullopt;
    common::LittleEndianReader fields(preamble);
    if (fields.text(BackupMagic.size()) != BackupMagic) {
        error = damagedBackup("it does not begin as one");
        return std::nullopt;
    }
    if (const auto version = fields.number(4); version != BackupVersion)
        error = Error(platform::POSIXErrorDomain, EPROTONOSUPPORT,
                      fmt::format("This backup is of version {}; this device reads version {}.",
                                  version, BackupVersion));
    const auto size = fields.number(4);
    if (!error && size > MaximumBackupHeadSize)
        error = damagedBackup("its list of files is too long");
    if (error)
        return std::nullopt;
    // Grows with what is really there.
    std::vector<std::uint8_t> bytes;
    while (bytes.size() < size) {
        const std::size_t before = bytes.size();
        bytes.resize(std::min<std::uint64_t>(size, before + PieceSize));
        error = read(std::span(bytes).subspan(before));
        if (error)
            return std::nullopt;
    }
    return decodeHead(bytes, error);
}

OptionalError BackupReader::readFile(const BackupFile& file, const Sink& sink) {
    common::XXH3Stream hash;
    for (std::uint64_t left = file.size; left > 0;) {
        _piece.resize(std::min<std::uint64_t>(PieceSize, left));
        if (OptionalError error = read(_piece))
            return error;
        hash.update(_piece);
        if (OptionalError error = sink(_piece))
            return error;
        left -= _piece.size();
    }
    ++_files;
    return readHash(hash.digest(), fmt::format("\"{}\" is damaged in it", file.path));
}

OptionalError BackupReader::readEnd() {
    std::array<std::uint8_t, BackupEndSize - sizeof(common::Hash128)> end{};
    if (OptionalError error = read(end))
        return error;
    common::LittleEndianReader fields(end);
    if (fields.text(BackupEndMark.size()) != BackupEndMark || fields.number(8) != _files)
        return damagedBackup("its end is damaged");
    if (OptionalError error = readHash(_all.digest(), "its end is damaged"))
        return error;
    OptionalError error;
    std::uint8_t more = 0;
    if (_source(std::span(&more, 1), error) != 0)
        return damagedBackup("something follows its end");
    return error;
}

}  // namespace orlith
