#include "host/session/session_stream.h"

#include "host/session/link_error.h"

namespace host {

namespace link = ::orlith::link;

namespace {

// An upload's bytes wait in memory only up to this many chunks of 256 KiB. Other messages are
// small and always taken, so that the device never waits for us while we wait for it.
constexpr std::size_t MostWaitingUploadChunks = 32;

}  // namespace

SessionStream::SessionStream(std::shared_ptr<link::Device::Stub> service)
    : _service(std::move(service)), _stream(_service->Session(&_context)) {
    _reader = std::thread([this] { readAll(); });
}

SessionStream::~SessionStream() {
    {
        const std::scoped_lock lock(_mutex);
        _abandoned = true;
        if (!_ended)
            _context.TryCancel();
    }
    _changed.notify_all();
    _reader.join();
}

void SessionStream::readAll() {
    link::FromDevice message;
    while (_stream->Read(&message)) {
        std::unique_lock lock(_mutex);
        if (message.has_failed() && !_error)
            _error = errorOfFailedSession(message.failed());
        if (message.has_upload_chunk()) {
            _changed.wait(lock, [this] {
                return _abandoned || _receivedUploadChunks < MostWaitingUploadChunks;
            });
            ++_receivedUploadChunks;
        }
        _received.push_back(std::move(message));
        _changed.notify_all();
    }
    const grpc::Status status = _stream->Finish();
    const std::scoped_lock lock(_mutex);
    if (!_error)
        _error = status.ok() ? platform::Error(LinkErrorDomain, LinkErrorUnreachable,
                                               "the device ended the session")
                             : errorOfStatus(status);
    _ended = true;
    _changed.notify_all();
}

bool SessionStream::send(const link::FromHost& message) {
    {
        const std::scoped_lock lock(_mutex);
        if (_ended || _error)
            return false;
    }
    return write(message);
}

bool SessionStream::write(const link::FromHost& message) {
    const std::scoped_lock lock(_writeMutex);
    return !_writesDone && _stream->Write(message);
}

std::optional<link::FromDevice> SessionStream::receive(
    std::optional<std::chrono::steady_clock::time_point> deadline) {
    std::unique_lock lock(_mutex);
    const auto ready = [this] { return _ended || !_received.empty(); };
    if (deadline)
        _changed.wait_until(lock, *deadline, ready);
    else
        _changed.wait(lock, ready);
    if (_received.empty())
        return std::nullopt;
    link::FromDevice message = std::move(_received.front());
    _received.pop_front();
    if (message.has_upload_chunk() && _receivedUploadChunks-- == MostWaitingUploadChunks)
        _changed.notify_all();
    return message;
}

std::optional<link::FromDevice> SessionStream::poll() {
    return receive(std::chrono::steady_clock::time_point::min());
}

void SessionStream::sayNoMore() {
    const std::scoped_lock lock(_writeMutex);
    if (!_writesDone)
        _stream->WritesDone();
    _writesDone = true;
}

platform::Error SessionStream::error() {
    std::unique_lock lock(_mutex);
    // A write can fail before the reader has learnt why.
    _changed.wait_for(lock, std::chrono::seconds(5), [this] { return _ended || _error; });
    return _error.value_or(
        platform::Error(LinkErrorDomain, LinkErrorUnreachable, "the device does not answer"));
}

void SessionStream::cancelImport() {
    link::FromHost message;
    message.mutable_cancel();
    write(message);
}

}  // namespace host
