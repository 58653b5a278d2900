// Writes "QORX" streams into a sink.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "common/qorx/format.h"
#include "common/qorx/qorx.pb.h"
#include "platform/errors.h"

namespace common {

// Takes all the bytes or fails.
using QorxSink = std::function<platform::OptionalError(std::span<const std::uint8_t> bytes)>;

// begin, any number of records, end: in this order, each once. Bytes reach the sink in pieces of
// about 64 KiB. After a failure of the sink the stream is lost and every call returns that error; a
// record that is larger than a reader takes is refused alone and the stream goes on without it. One
// thread at a time.
class QorxWriter {
public:
    explicit QorxWriter(QorxSink sink);
    ~QorxWriter();
    QorxWriter(const QorxWriter&) = delete;
    QorxWriter& operator=(const QorxWriter&) = delete;

    platform::OptionalError begin(const qorx::Header& header);
    platform::OptionalError write(const qorx::Track& track);
    platform::OptionalError write(const qorx::Playlist& playlist);
    platform::OptionalError write(const qorx::Deletion& deletion);
    // Writes the end record and the checksum, and hands the sink what is left.
    platform::OptionalError end();

    // Of the records written so far.
    const qorx::End& counts() const;

private:
    struct State;
    std::unique_ptr<State> _state;
};

}  // namespace common
