// Purpose: little-endian numbers and texts of small binary formats, read within their bounds.
// Calling thread: any; a reader is used by one thread at a time.
// Ownership: a reader borrows its bytes.
// Failure: reading beyond the end gives 0 or "", and from then on the reader is not whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/values.h"

namespace common {

class LittleEndianReader {
public:
    explicit LittleEndianReader(std::span<const std::uint8_t> bytes) : _bytes(bytes) {}

    // Of 1 to 8 bytes.
    std::uint64_t number(std::size_t size) {
        std::uint64_t value = 0;
        const auto raw = take(size);
        for (std::size_t i = 0; i < raw.size(); ++i)
            value |= std::uint64_t{raw[i]} << (8 * i);
        return value;
    }
    std::string text(std::size_t size) {
        const auto raw = take(size);
        return {raw.begin(), raw.end()};
    }
    // Everything asked for was there.
    bool isWhole() const { return _isWhole; }
    // It was, and nothing is left.
    bool isAtEnd() const { return _isWhole && _bytes.empty(); }

private:
    std::span<const std::uint8_t> take(std::size_t size) {
        _isWhole = _isWhole && size <= _bytes.size();
        if (!_isWhole)
            return {};
        const auto front = _bytes.first(size);
        _bytes = _bytes.subspan(size);
        return front;
    }

    std::span<const std::uint8_t> _bytes;
    bool _isWhole = true;
};

inline void appendLittleEndian(platform::Data& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// Two bytes of length, then the text, which is no longer than they can say.
inline void appendShortText(platform::Data& out, std::string_view text) {
    appendLittleEndian(out, text.size(), 2);
    out.insert(out.end(), text.begin(), text.end());
}

}  // namespace common
