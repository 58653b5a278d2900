// Purpose: reads one part of an asset in pieces, hashes it, and notices when its file changes
// meanwhile.
// Thread: one at a time.
// Ownership: owns the opened file; the part outlives the reader.
// Failure: a reason in plain words; the reader is then of no more use.
#pragma once

#include <cstdint>
#include <string>

#include "common/unique_fd.h"
#include "host/scan/content_hash.h"
#include "host/session/asset_source.h"

namespace host {

class PartReader {
public:
    explicit PartReader(const AssetPart& part) : _part(part) {}

    // Opens the part and reads over its first `offset` bytes, for the hash alone. Returns why that
    // fails, or nothing.
    std::string open(std::uint64_t offset);
    std::uint64_t size() const { return _size; }

    struct Piece {
        std::string data;  // at most 256 KiB
        bool last = false;
        std::string failure;  // the part is void; `data` is empty and this is the last
    };
    Piece next();
    // Of the whole part, once the last piece was read.
    ContentHash hash() const { return _hasher.digest(); }

private:
    // Up to `end` at the most.
    std::string readPiece(std::uint64_t end, std::string& data);
    bool isUnchanged() const;

    const AssetPart& _part;
    common::UniqueFd _fd;  // none when the part's bytes are in memory
    std::uint64_t _size = 0;
    std::uint64_t _position = 0;
    common::XXH3Stream _hasher;
};

}  // namespace host
