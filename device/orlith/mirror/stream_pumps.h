// The daemon's stream writer and reader: they move all bytes of a stream on a serial queue and call
// back there once.
//
// Made and started on any thread. What runs keeps itself alive, so both may be released at any
// time, in their own callback too. A callback that throws ends there: the stream is told when it is
// a BoundStream, and the queue goes on.
#pragma once

#include <memory>

#include "platform/sync_daemon.h"

namespace orlith {

class StreamWriter final : public ORStreamWriter {
public:
    StreamWriter(std::shared_ptr<platform::OutputStream> stream,
                 std::shared_ptr<platform::WorkQueue> queue);

    // The first error stays: after it nothing is written and every call gets it.
    void writeAllData(platform::Data data,
                      std::function<void(const platform::OptionalError&)> completion) override;

private:
    struct State;
    const std::shared_ptr<State> _state;
    const std::shared_ptr<platform::WorkQueue> _queue;
};

class StreamReader final : public ORStreamReader {
public:
    // More than this and reading ends with EFBIG: lengths in a change stream's parameters have 32
    // bits, and the reader's callback gets all bytes at once.
    static constexpr std::size_t LargestStream = std::size_t{1} << 31;

    StreamReader(std::shared_ptr<platform::InputStream> stream,
                 std::shared_ptr<platform::WorkQueue> queue);

    // After an error the data are what was read before it.
    void readAllDataWithCompletion(
        std::function<void(platform::Data data, const platform::OptionalError&)> completion)
        override;

private:
    struct State;
    const std::shared_ptr<State> _state;
    const std::shared_ptr<platform::WorkQueue> _queue;
};

}  // namespace orlith
