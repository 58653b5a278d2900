#include "device/orlith/mirror/change_streams.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "device/system/worker_pool.h"

namespace orlith {

using platform::Error;
using platform::OptionalError;

PieceOutputStream::PieceOutputStream(Sink sink, CallbackFailure callbackFailure)
    : _sink(std::move(sink)), _callbackFailure(std::move(callbackFailure)) {}

OptionalError PieceOutputStream::write(std::span<const std::uint8_t> bytes) {
    const std::scoped_lock lock(_mutex);
    while (!_error && !bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), PieceSize - _pending.size());
        _pending.append(reinterpret_cast<const char*>(bytes.data()), count);
        _hasher.update(bytes.first(count));
        _size += count;
        bytes = bytes.subspan(count);
        if (_pending.size() == PieceSize)
            flush();
    }
    return _error;
}

OptionalError PieceOutputStream::finish() {
    const std::scoped_lock lock(_mutex);
    if (!_error && !_pending.empty())
        flush();
    return _error;
}

void PieceOutputStream::close() {
    const std::scoped_lock lock(_mutex);
    if (!_error)
        _error = Error(platform::POSIXErrorDomain, EBADF, "the stream is closed");
}

OptionalError PieceOutputStream::flush() {
    // The far end may take its time.
    const device::BlockingScope blocks;
    if (!_sink(std::exchange(_pending, {})))
        _error = Error(platform::POSIXErrorDomain, EPIPE, "the other end has gone");
    return _error;
}

}  // namespace orlith
