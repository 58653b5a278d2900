// Reads a backup from its first byte to its last: the head, each file, the end. Nothing is believed
// before its hash has been compared, and no memory is taken for what the bytes only claim.
//
// One thread. Errors are of POSIXErrorDomain: EBADMSG for a file that is damaged or cut off,
// EPROTONOSUPPORT for one of a newer version; or what the source or the sink said.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "common/hash.h"
#include "device/orlith/backup/backup_format.h"
#include "platform/errors.h"

namespace orlith {

class BackupReader {
public:
    // Fills some of the span, all of it at the most; 0 at the end, or with an error.
    using Source = std::function<std::size_t(std::span<std::uint8_t>, platform::OptionalError&)>;
    using Sink = std::function<platform::OptionalError(std::span<const std::uint8_t>)>;

    explicit BackupReader(Source source) : _source(std::move(source)) {}

    std::optional<BackupHead> readHead(platform::OptionalError& error);
    // The next file; in the head's order. What the sink took is true only when no error is
    // returned.
    platform::OptionalError readFile(const BackupFile& file, const Sink& sink);
    // After the last file: the end, and that nothing follows it.
    platform::OptionalError readEnd();

private:
    // All of the span.
    platform::OptionalError read(std::span<std::uint8_t> bytes);
    platform::OptionalError readHash(const common::Hash128& expected, const std::string& what);

    const Source _source;
    common::XXH3Stream _all;
    std::uint64_t _files = 0;
    std::vector<std::uint8_t> _piece;
};

}  // namespace orlith
