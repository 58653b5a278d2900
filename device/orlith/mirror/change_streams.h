// The streams that change sync hands to a plug-in: one that collects what is written into pieces
// and passes them on, and one that reads a file which belongs to an operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "common/hash.h"
#include "device/orlith/mirror/bound_stream.h"
#include "platform/operating_system.h"

namespace orlith {

// Told of a callback that threw, on any thread.
using CallbackFailure = std::function<void(const platform::Error&)>;

// Any thread; one that writes late, when the operation is over, gets an error.
class PieceOutputStream final : public platform::OutputStream, public BoundStream {
public:
    // Pieces of a message; small writes are collected up to it.
    static constexpr std::size_t PieceSize = 128 << 10;
    // Takes one piece, waiting as long as the far end does; false when it is gone.
    using Sink = std::function<bool(std::string piece)>;

    PieceOutputStream(Sink sink, CallbackFailure callbackFailure);

    // platform::OutputStream
    void open() override {}
    // The sink is neither running nor called again when it returns.
    void close() override;
    platform::OptionalError write(std::span<const std::uint8_t> bytes) override;
    std::string description() const override { return "<change stream to another device>"; }
    // BoundStream
    void callbackThrew(const platform::Error& error) override { _callbackFailure(error); }

    // Passes on what is left; the first error of all writes.
    platform::OptionalError finish();
    // Of what was written; for after close().
    std::uint64_t size() const { return _size; }
    common::Hash128 hash() const { return _hasher.digest(); }

private:
    platform::OptionalError flush();  // with _mutex

    const Sink _sink;
    const CallbackFailure _callbackFailure;
    std::mutex _mutex;
    std::string _pending;            // guarded by _mutex
    std::uint64_t _size = 0;         // written under _mutex
    common::XXH3Stream _hasher;      // written under _mutex
    platform::OptionalError _error;  // the first; guarded by _mutex
};

// A file's bytes.
class BoundInputStream final : public platform::InputStream, public BoundStream {
public:
    BoundInputStream(std::unique_ptr<platform::InputStream> file, CallbackFailure callbackFailure)
        : _file(std::move(file)), _callbackFailure(std::move(callbackFailure)) {}

    // platform::InputStream
    platform::OptionalError read(platform::Data& out, std::size_t count) override {
        return _file->read(out, count);
    }
    std::string description() const override { return _file->description(); }
    // BoundStream
    void callbackThrew(const platform::Error& error) override { _callbackFailure(error); }

private:
    const std::unique_ptr<platform::InputStream> _file;
    const CallbackFailure _callbackFailure;
};

}  // namespace orlith
