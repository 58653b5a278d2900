#include "tests/support/recording_property_lists.h"

namespace support {

platform::Error RecordingPropertyLists::malformed() {
    return platform::Error("PropertyListErrorDomain", 1, "malformed");
}

platform::Data RecordingPropertyLists::bytesFor(const platform::Value& value) {
    const std::lock_guard lock(_mutex);
    const std::string text = "plist" + std::to_string(_values.size());
    platform::Data bytes(text.begin(), text.end());
    _values[bytes] = value;
    return bytes;
}

std::optional<platform::Value> RecordingPropertyLists::parse(const platform::Data& bytes,
                                                             platform::OptionalError* error) {
    return valueOf(bytes, _recorder.fails("PropertyLists.parse"), error);
}

std::optional<platform::Value> RecordingPropertyLists::parse(platform::InputStream& stream,
                                                             platform::OptionalError* error) {
    const bool isFault = _recorder.fails("PropertyLists.parse", {stream.description()});
    constexpr std::size_t block = 4096;
    platform::Data bytes;
    std::size_t before = 0;
    do {
        before = bytes.size();
        if (const auto problem = stream.read(bytes, block)) {
            if (error)
                *error = problem;
            return std::nullopt;
        }
    } while (bytes.size() > before);
    return valueOf(bytes, isFault, error);
}

std::optional<platform::Value> RecordingPropertyLists::valueOf(const platform::Data& bytes,
                                                               bool isFault,
                                                               platform::OptionalError* error) {
    const std::lock_guard lock(_mutex);
    const auto found = _values.find(bytes);
    if (isFault || found == _values.end()) {
        if (error)
            *error = malformed();
        return std::nullopt;
    }
    return found->second;
}

std::optional<platform::Data> RecordingPropertyLists::serialize(const platform::Value& value,
                                                                platform::PropertyListFormat format,
                                                                platform::OptionalError* error) {
    if (_recorder.fails("PropertyLists.serialize", {value, static_cast<int>(format)})) {
        if (error)
            *error = malformed();
        return std::nullopt;
    }
    return bytesFor(value);
}

}  // namespace support
