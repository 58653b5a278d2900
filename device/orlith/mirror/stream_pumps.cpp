#include "device/orlith/mirror/stream_pumps.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "device/orlith/mirror/bound_stream.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::OptionalError;

constexpr std::size_t ReadSize = 256 << 10;

// The boundary between a plug-in's callback and the queue that it runs on.
template <typename Stream>
void callGuarded(const std::shared_ptr<Stream>& stream, const std::function<void()>& callback) {
    std::string reason = "an exception of unknown kind";
    try {
        callback();
        return;
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
    }
    if (auto* bound = dynamic_cast<BoundStream*>(stream.get()))
        bound->callbackThrew(internalError(reason));
}

}  // namespace

struct StreamWriter::State {
    std::shared_ptr<platform::OutputStream> stream;
    OptionalError firstError;  // the queue's own
};

StreamWriter::StreamWriter(std::shared_ptr<platform::OutputStream> stream,
                           std::shared_ptr<platform::WorkQueue> queue)
    : _state(std::make_shared<State>(State{std::move(stream), {}})), _queue(std::move(queue)) {}

void StreamWriter::writeAllData(platform::Data data,
                                std::function<void(const OptionalError&)> completion) {
    _queue->async(
        [state = _state, data = std::move(data), completion = std::move(completion)]() mutable {
            if (!state->firstError)
                state->firstError = state->stream->write(data);
            const OptionalError error = state->firstError;
            const std::shared_ptr<platform::OutputStream> stream = state->stream;
            callGuarded(stream, [&] { std::exchange(completion, nullptr)(error); });
        });
}

struct StreamReader::State {
    std::shared_ptr<platform::InputStream> stream;
};

StreamReader::StreamReader(std::shared_ptr<platform::InputStream> stream,
                           std::shared_ptr<platform::WorkQueue> queue)
    : _state(std::make_shared<State>(State{std::move(stream)})), _queue(std::move(queue)) {}

void StreamReader::readAllDataWithCompletion(
    std::function<void(platform::Data, const OptionalError&)> completion) {
    _queue->async([state = _state, completion = std::move(completion)]() mutable {
        const std::shared_ptr<platform::InputStream> stream = state->stream;
        platform::Data data;
        OptionalError error;
        for (;;) {
            const std::size_t before = data.size();
            if (before > LargestStream) {
                error = Error(platform::POSIXErrorDomain, EFBIG,
                              "the stream is longer than the device takes");
                break;
            }
            error = stream->read(data, ReadSize);
            if (error || data.size() == before)
                break;
        }
        callGuarded(stream, [&] { std::exchange(completion, nullptr)(std::move(data), error); });
    });
}

}  // namespace orlith
