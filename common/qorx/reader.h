// Reads "QORX" streams, one record after another, from a source or from memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

#include "common/qorx/format.h"
#include "common/qorx/qorx.pb.h"
#include "platform/errors.h"

namespace common {

// Fills at most the given span and returns how much; 0 is the end. A failure is put into `error`
// (never null) and ends the stream.
using QorxSource =
    std::function<std::size_t(std::span<std::uint8_t> into, platform::OptionalError* error)>;

struct QorxLimits {
    std::uint64_t totalBytes = std::uint64_t{4} << 30;
    // Records of any kind, header and end included.
    std::uint64_t records = 20'000'000;
};

// What a stream says of itself, known once it has been read to its end.
struct QorxSummary {
    qorx::Header header;
    qorx::End counts;
};

// Single use, one thread at a time. The bytes are untrusted: every length is checked before memory
// is taken, and memory grows only as bytes arrive.
class QorxReader {
public:
    explicit QorxReader(QorxSource source, QorxLimits limits = {});
    // Borrows the bytes.
    explicit QorxReader(std::span<const std::uint8_t> bytes, QorxLimits limits = {});
    ~QorxReader();
    QorxReader(const QorxReader&) = delete;
    QorxReader& operator=(const QorxReader&) = delete;

    // The next track, playlist or deletion, made in the caller's arena; null at the end of the
    // stream, which is reached only when counts and checksum are right and nothing follows, and
    // null on failure. Records of unknown kinds are skipped. After null it stays null.
    const qorx::Record* next(google::protobuf::Arena& arena);
    // From here on only records of this kind are handed out; the others are counted and passed over
    // unread.
    void handOutOnly(qorx::Record::KindCase kind);
    // From here on another stream may follow the end of this one.
    void letOthersFollow();
    // Once next() has reached the end: whether another stream follows, which is then the one that
    // is read, its header and counts included. The limits hold for all of them together.
    bool beginNext();
    // How many bytes have been read; after the end of a stream, where it ends.
    std::uint64_t position() const;
    // The header, read if it has not been yet; null on failure.
    const qorx::Header* header();
    // Why reading ended before the end, with the byte where that was; absent at the end.
    const platform::OptionalError& error() const;
    // Of the records read so far.
    const qorx::End& counts() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

// Reads to the end. Absent when the stream is not whole or goes beyond the limits, with the reason
// in `error` unless that is null.
std::optional<QorxSummary> verifyQorx(QorxReader& reader, platform::OptionalError* error);

}  // namespace common
