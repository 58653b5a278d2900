#include "tests/support/recording_streams.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace support {
namespace {

// In small pieces, so that a reader that stops after the first would show.
platform::OptionalError readToEnd(platform::InputStream& stream, platform::Data& out) {
    while (true) {
        const std::size_t before = out.size();
        if (platform::OptionalError error = stream.read(out, 64))
            return error;
        if (out.size() == before)
            return std::nullopt;
    }
}

}  // namespace

platform::OptionalError MemoryInputStream::read(platform::Data& out, std::size_t count) {
    const auto begin = _bytes.begin() + static_cast<std::ptrdiff_t>(_next);
    _next += std::min(_bytes.size() - _next, count);
    out.insert(out.end(), begin, _bytes.begin() + static_cast<std::ptrdiff_t>(_next));
    return std::nullopt;
}

void RecordingOutputStream::open() {
    _recorder.record("OutputStream.open", {_name});
    _isOpen = true;
}

void RecordingOutputStream::close() {
    _recorder.record("OutputStream.close", {_name});
    _isOpen = false;
}

platform::OptionalError RecordingOutputStream::write(std::span<const std::uint8_t> bytes) {
    if (_recorder.fails("OutputStream.write", {_name, platform::Data(bytes.begin(), bytes.end())}))
        return platform::Error::posix(EPIPE);
    if (!_isOpen)
        return platform::Error::posix(EBADF);
    _bytes.insert(_bytes.end(), bytes.begin(), bytes.end());
    return std::nullopt;
}

platform::Data RecordingOutputStream::takeData() {
    _recorder.record("MemoryOutputStream.takeData", {_name});
    return std::exchange(_bytes, {});
}

void RecordingStreamWriter::writeAllData(
    platform::Data data, std::function<void(const platform::OptionalError&)> completion) {
    const bool isFault = _recorder.fails("ORStreamWriter.writeAllData", {data});
    _scheduler.post(0, [weakWriter = weak_from_this(), isFault, data = std::move(data),
                        completion = std::move(completion)] {
        auto writer = weakWriter.lock();
        if (!writer)
            return;
        const platform::OptionalError error =
            isFault ? platform::Error::posix(EIO) : writer->_stream->write(data);
        writer.reset();
        completion(error);
    });
}

void RecordingStreamReader::readAllDataWithCompletion(
    std::function<void(platform::Data data, const platform::OptionalError&)> completion) {
    const bool isFault = _recorder.fails("ORStreamReader.readAllData");
    _scheduler.post(
        0, [weakReader = weak_from_this(), isFault, completion = std::move(completion)] {
            auto reader = weakReader.lock();
            if (!reader)
                return;
            platform::Data data;
            const platform::OptionalError error =
                isFault ? platform::Error::posix(EIO) : readToEnd(*reader->_stream, data);
            reader.reset();
            completion(std::move(data), error);
        });
}

}  // namespace support
