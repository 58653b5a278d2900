// Any bytes as a backup, in pieces of any size: it is read to its end or refused, and what is taken
// of it is never more than there was.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "device/orlith/backup/backup_reader.h"

namespace {

void readToTheEnd(std::span<const std::uint8_t> bytes, std::size_t pieceSize) {
    std::size_t at = 0;
    orlith::BackupReader reader(
        [&](std::span<std::uint8_t> room, platform::OptionalError&) -> std::size_t {
            const std::size_t size = std::min({pieceSize, room.size(), bytes.size() - at});
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, room.begin());
            at += size;
            return size;
        });
    platform::OptionalError error;
    const auto head = reader.readHead(error);
    if (head.has_value() == error.has_value())
        std::abort();
    if (!head)
        return;
    std::size_t taken = 0;
    for (const orlith::BackupFile& file : head->files) {
        error = reader.readFile(file, [&](std::span<const std::uint8_t> piece) {
            taken += piece.size();
            return platform::OptionalError();
        });
        if (taken > bytes.size())
            std::abort();
        if (error)
            return;
    }
    reader.readEnd();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    readToTheEnd({data, size}, 7);
    readToTheEnd({data, size}, size + 1);
    return 0;
}
