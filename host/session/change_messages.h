// Purpose: a change stream's messages on the host's side: taking them from a device, and making
// them of a file.
// Thread: one at a time.
// Failure: Errors in plain words; the stream is then worth nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/hash.h"
#include "common/unique_fd.h"
#include "host/session/change_parameters.h"
#include "platform/errors.h"

namespace orlith::link {
class ChangesEnd;
class ChangeStream;
}  // namespace orlith::link

namespace host {

class ChangeReceiver {
public:
    using Sink = std::function<platform::OptionalError(std::string_view)>;
    explicit ChangeReceiver(Sink data) : _data(std::move(data)) {}

    // Hands data on; the end is compared with what came.
    platform::OptionalError take(const orlith::link::ChangeStream& piece);
    // Whole once the end was taken.
    const ChangeParameters& parameters() const { return _parameters; }
    std::uint64_t bytes() const { return _bytes; }

private:
    platform::OptionalError takeParameters(const std::string& propertyList);
    platform::OptionalError takeEnd(const orlith::link::ChangesEnd& end);

    const Sink _data;
    ChangeParameters _parameters;
    bool _hasParameters = false;
    std::uint64_t _bytes = 0;
    common::XXH3Stream _hasher;
};

// Reads a file once, from its beginning to its end.
class ChangeSender {
public:
    explicit ChangeSender(ChangeParameters parameters) : _parameters(std::move(parameters)) {}

    platform::OptionalError open(const std::string& path);
    // The next message; false after the last. A file that is not the one that the parameters speak
    // of ends with a failure.
    bool next(orlith::link::ChangeStream& piece);
    const platform::OptionalError& error() const { return _error; }
    std::uint64_t bytes() const { return _bytes; }

private:
    enum class Step { Parameters, Data, Over };

    void fillData(orlith::link::ChangeStream& piece);
    void fillEnd(orlith::link::ChangesEnd& end);
    void fail(int errorNumber, std::string_view text);

    const ChangeParameters _parameters;
    std::string _path;
    std::string _propertyList;
    common::UniqueFd _fd;
    Step _step = Step::Parameters;
    std::uint64_t _bytes = 0;
    common::XXH3Stream _hasher;
    platform::OptionalError _error;
};

}  // namespace host
