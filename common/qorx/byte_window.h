// The unread part of a byte source that a reader stands on, with a checksum of what it has left
// behind. For the use of QorxReader.
#pragma once

#include <xxhash.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "common/qorx/reader.h"

namespace common {

class ByteWindow {
public:
    // At most `limit` bytes are taken from the source; more is an error.
    ByteWindow(QorxSource source, std::uint64_t limit);
    ByteWindow(std::span<const std::uint8_t> bytes, std::uint64_t limit);

    // Whether at least `size` unread bytes lie at data() now. False at the end of the source and
    // on failure, which error() tells apart.
    bool ensure(std::size_t size) { return size <= _end - _begin || fill(size); }
    // Valid until the next ensure.
    const std::uint8_t* data() const { return _bytes + _begin; }
    // `size` bytes that ensure has granted are read.
    void consume(std::size_t size) { _begin += size; }
    // Bytes consumed since the start.
    std::uint64_t position() const { return _dropped + _begin; }
    // XXH3-64 of the bytes consumed since the start, or since restartChecksum.
    std::uint64_t checksumOfConsumed();
    // From here on the checksum is that of the bytes to come.
    void restartChecksum();
    const platform::OptionalError& error() const { return _error; }

private:
    struct HashDeleter {
        void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
    };

    bool fill(std::size_t size);
    void hashConsumed();

    QorxSource _source;  // empty when the bytes were given whole
    std::uint64_t _limit;
    std::vector<std::uint8_t> _buffer;
    const std::uint8_t* _bytes = nullptr;  // the buffer, or the bytes given
    std::size_t _hashed = 0;               // up to here consumed bytes are in the hash
    std::size_t _begin = 0;
    std::size_t _end = 0;
    std::uint64_t _dropped = 0;  // bytes before the buffer's first
    bool _atEnd = false;
    std::unique_ptr<XXH3_state_t, HashDeleter> _hash;
    platform::OptionalError _error;
};

}  // namespace common
