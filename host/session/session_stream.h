// Purpose: the two-way message stream of one session: writing, and a thread that reads ahead.
// Thread: one thread works the session (send, receive, finish); cancel() may come from any other.
// Ownership: owns its thread; destruction cuts the stream if it still runs.
// Failure: once the stream has ended, sending and receiving fail and error() tells why.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "link/orlith.grpc.pb.h"
#include "platform/errors.h"

namespace host {

class SessionStream {
public:
    explicit SessionStream(std::shared_ptr<orlith::link::Device::Stub> service);
    ~SessionStream();
    SessionStream(const SessionStream&) = delete;
    SessionStream& operator=(const SessionStream&) = delete;

    // Waits while the device takes no more. False when the stream has ended.
    bool send(const orlith::link::FromHost& message);
    // The next message, waiting for it; absent when the stream has ended or the deadline passed.
    std::optional<orlith::link::FromDevice> receive(
        std::optional<std::chrono::steady_clock::time_point> deadline = {});
    // The next message if one is here.
    std::optional<orlith::link::FromDevice> poll();
    // Says that nothing more will be sent; the device then ends the session its way.
    void sayNoMore();
    // Why the stream ended; call it once it has.
    platform::Error error();
    // Any thread: asks the device to stop the import that runs or is to come.
    void cancelImport();

private:
    void readAll();
    bool write(const orlith::link::FromHost& message);

    std::shared_ptr<orlith::link::Device::Stub> _service;
    grpc::ClientContext _context;
    std::unique_ptr<grpc::ClientReaderWriter<orlith::link::FromHost, orlith::link::FromDevice>>
        _stream;

    std::mutex _writeMutex;    // one writer at a time
    bool _writesDone = false;  // guarded by _writeMutex

    std::mutex _mutex;  // protects what follows
    std::condition_variable _changed;
    std::deque<orlith::link::FromDevice> _received;
    std::size_t _receivedUploadChunks = 0;  // of those in _received
    bool _ended = false;
    bool _abandoned = false;
    std::optional<platform::Error> _error;

    std::thread _reader;  // last: it uses everything above
};

}  // namespace host
