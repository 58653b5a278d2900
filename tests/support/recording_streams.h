// The streams of the daemon and of memory, and what writes and reads them away from the caller's
// thread.
#pragma once

#include <memory>
#include <string>

#include "platform/operating_system.h"
#include "platform/sync_daemon.h"
#include "tests/support/recorder.h"
#include "tests/support/virtual_scheduler.h"

namespace support {

// Bytes in memory, read piece by piece.
class MemoryInputStream : public platform::InputStream {
public:
    MemoryInputStream(std::string name, platform::Data bytes)
        : _name(std::move(name)), _bytes(std::move(bytes)) {}

    platform::OptionalError read(platform::Data& out, std::size_t count) override;
    std::string description() const override { return "<stream " + _name + ">"; }

private:
    const std::string _name;
    const platform::Data _bytes;
    std::size_t _next = 0;
};

// Keeps what is written; every call is recorded under the name of the stream. A write before the
// stream is open, or after its end, is an error.
class RecordingOutputStream : public platform::MemoryOutputStream {
public:
    RecordingOutputStream(Recorder& recorder, std::string name)
        : _recorder(recorder), _name(std::move(name)) {}

    // Everything written so far, not recorded.
    const platform::Data& bytes() const { return _bytes; }

    void open() override;
    void close() override;
    platform::OptionalError write(std::span<const std::uint8_t> bytes) override;
    platform::Data takeData() override;
    std::string description() const override { return "<" + _name + ">"; }

private:
    Recorder& _recorder;
    const std::string _name;
    bool _isOpen = false;
    platform::Data _bytes;
};

// Does its work in a job of its own, where a fault is its error; one that is released before that
// never calls back.
class RecordingStreamWriter : public ORStreamWriter,
                              public std::enable_shared_from_this<RecordingStreamWriter> {
public:
    RecordingStreamWriter(Recorder& recorder, VirtualScheduler& scheduler,
                          std::shared_ptr<platform::OutputStream> stream)
        : _recorder(recorder), _scheduler(scheduler), _stream(std::move(stream)) {}

    void writeAllData(platform::Data data,
                      std::function<void(const platform::OptionalError&)> completion) override;

private:
    Recorder& _recorder;
    VirtualScheduler& _scheduler;
    const std::shared_ptr<platform::OutputStream> _stream;
};

// As the writer.
class RecordingStreamReader : public ORStreamReader,
                              public std::enable_shared_from_this<RecordingStreamReader> {
public:
    RecordingStreamReader(Recorder& recorder, VirtualScheduler& scheduler,
                          std::shared_ptr<platform::InputStream> stream)
        : _recorder(recorder), _scheduler(scheduler), _stream(std::move(stream)) {}

    void readAllDataWithCompletion(
        std::function<void(platform::Data data, const platform::OptionalError&)> completion)
        override;

private:
    Recorder& _recorder;
    VirtualScheduler& _scheduler;
    const std::shared_ptr<platform::InputStream> _stream;
};

}  // namespace support
