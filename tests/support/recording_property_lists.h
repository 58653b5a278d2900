// Property lists by agreement: bytes mean the value that a test gave them. Callable from any
// thread.
#pragma once

#include <map>
#include <mutex>

#include "platform/operating_system.h"
#include "tests/support/recorder.h"

namespace support {

class RecordingPropertyLists : public platform::PropertyLists {
public:
    explicit RecordingPropertyLists(Recorder& recorder) : _recorder(recorder) {}

    // Bytes that parse to the value, others for each call.
    platform::Data bytesFor(const platform::Value& value);

    // Bytes that nobody was given are malformed.
    std::optional<platform::Value> parse(const platform::Data& bytes,
                                         platform::OptionalError* error) override;
    std::optional<platform::Value> parse(platform::InputStream& stream,
                                         platform::OptionalError* error) override;
    std::optional<platform::Data> serialize(const platform::Value& value,
                                            platform::PropertyListFormat format,
                                            platform::OptionalError* error) override;

    // What malformed bytes give.
    static platform::Error malformed();

private:
    std::optional<platform::Value> valueOf(const platform::Data& bytes, bool isFault,
                                           platform::OptionalError* error);

    Recorder& _recorder;
    std::mutex _mutex;
    std::map<platform::Data, platform::Value> _values;  // guarded by _mutex
};

}  // namespace support
