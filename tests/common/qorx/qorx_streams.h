// Streams for the tests of the "QORX" reader and writer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/qorx/reader.h"
#include "common/qorx/writer.h"

namespace qorx_streams {

using Bytes = std::vector<std::uint8_t>;

// A sink that appends.
common::QorxSink into(Bytes& bytes);
// A source that hands out at most `piece` bytes at a time.
common::QorxSource from(const Bytes& bytes, std::size_t piece);

qorx::Track track(std::int64_t syncID, const std::string& title);
// A header, two tracks, a playlist of both, a deletion and the end.
Bytes sample();

// The bytes and their checksum.
Bytes sealed(Bytes bytes);

// A stream of raw records with a checksum that is right, whatever the records hold.
class RawStream {
public:
    RawStream();
    RawStream& record(const qorx::Record& record);
    RawStream& raw(const Bytes& bytes);
    RawStream& length(std::uint64_t value);
    // With the checksum.
    Bytes finish() const;
    // Without it.
    const Bytes& bytes() const { return _bytes; }

private:
    Bytes _bytes;
};

qorx::Record headerRecord();
qorx::Record trackRecord(std::int64_t syncID);
qorx::Record endRecord(std::uint64_t tracks, std::uint64_t playlists = 0,
                       std::uint64_t deletions = 0);

struct Outcome {
    std::vector<qorx::Record> records;
    platform::OptionalError error;
};
// Reads to the end or the first failure.
Outcome readAll(common::QorxReader& reader);
Outcome readAll(const Bytes& bytes);

}  // namespace qorx_streams
