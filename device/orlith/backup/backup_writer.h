// Writes a backup: head, files and end, piece by piece to whoever takes the bytes.
//
// One thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "common/hash.h"
#include "device/orlith/backup/backup_format.h"
#include "platform/errors.h"

namespace orlith {

class BackupWriter {
public:
    // Answers false when it takes no more.
    using Sink = std::function<bool(std::span<const std::uint8_t>)>;

    explicit BackupWriter(Sink sink) : _sink(std::move(sink)) {}

    platform::OptionalError begin(const BackupHead& head);
    // The next file of the head, from a descriptor that is read from its beginning. It has to have
    // the size that the head says.
    platform::OptionalError file(const BackupFile& file, int descriptor);
    platform::OptionalError end();

private:
    platform::OptionalError write(std::span<const std::uint8_t> bytes);

    const Sink _sink;
    common::XXH3Stream _all;
    std::uint64_t _files = 0;
    std::vector<std::uint8_t> _piece;
};

}  // namespace orlith
