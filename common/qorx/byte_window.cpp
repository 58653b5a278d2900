#include "common/qorx/byte_window.h"

#include <algorithm>

namespace common {

namespace {

constexpr std::size_t PieceSize = 64u << 10;

}  // namespace

ByteWindow::ByteWindow(QorxSource source, std::uint64_t limit)
    : _source(std::move(source)), _limit(limit), _hash(XXH3_createState()) {
    XXH3_64bits_reset(_hash.get());
}

ByteWindow::ByteWindow(std::span<const std::uint8_t> bytes, std::uint64_t limit)
    : _limit(limit), _bytes(bytes.data()), _end(bytes.size()), _hash(XXH3_createState()) {
    XXH3_64bits_reset(_hash.get());
    _atEnd = true;
    if (bytes.size() > limit) {
        _error = platform::Error(QorxErrorDomain, QorxErrorTooLarge, "the stream is too large");
        _end = 0;
    }
}

void ByteWindow::hashConsumed() {
    XXH3_64bits_update(_hash.get(), _bytes + _hashed, _begin - _hashed);
    _hashed = _begin;
}

std::uint64_t ByteWindow::checksumOfConsumed() {
    hashConsumed();
    return XXH3_64bits_digest(_hash.get());
}

void ByteWindow::restartChecksum() {
    XXH3_64bits_reset(_hash.get());
    _hashed = _begin;
}

bool ByteWindow::fill(std::size_t size) {
    if (_atEnd || _error) {
        return false;
    }
    hashConsumed();
    std::copy(_buffer.begin() + static_cast<std::ptrdiff_t>(_begin),
              _buffer.begin() + static_cast<std::ptrdiff_t>(_end), _buffer.begin());
    _dropped += _begin;
    _end -= _begin;
    _begin = _hashed = 0;
    while (_end < size) {
        // Room for one piece more, not for the length that is asked for: that may be a lie.
        if (_buffer.size() < _end + PieceSize) {
            _buffer.resize(std::max(_end + PieceSize, std::min(size, _buffer.size() * 2)));
        }
        _bytes = _buffer.data();
        const std::span<std::uint8_t> room(_buffer.data() + _end, _buffer.size() - _end);
        const std::size_t got = _source(room, &_error);
        if (_error) {
            return false;
        }
        if (got == 0) {
            _atEnd = true;
            return false;
        }
        _end += got;
        if (_dropped + _end > _limit) {
            _error = platform::Error(QorxErrorDomain, QorxErrorTooLarge, "the stream is too large");
            return false;
        }
    }
    return true;
}

}  // namespace common
