#include "device/orlith/mirror/change_operations.h"

#include <cerrno>
#include <condition_variable>
#include <exception>
#include <optional>

#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Dictionary;
using platform::Error;
using platform::OptionalError;

// The end of one operation, which comes once: from the plug-in's callback or from the boundary that
// caught what was thrown in its place. Whoever comes later is not heard.
class Ending {
public:
    void come(const OptionalError& error, std::int64_t revision) {
        const std::scoped_lock lock(_mutex);
        if (_came)
            return;
        _came = true;
        _error = error;
        _revision = revision;
        _changed.notify_all();
    }
    ImportedChanges wait() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _came; });
        return {_error, _revision};
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _came = false;          // guarded by _mutex
    OptionalError _error;        // guarded by _mutex
    std::int64_t _revision = 0;  // guarded by _mutex
};

void startGuarded(Ending& ending, const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::exception& error) {
        ending.come(internalError(error.what()), 0);
    } catch (...) {
        ending.come(internalError("an exception of unknown kind"), 0);
    }
}

OptionalError unsupported(const char* what) {
    return Error(OrlithErrorDomain, OrlithErrorRefused,
                 std::string("the device's plug-in does not ") + what);
}

}  // namespace

std::string ChangeOperations::dataClass() {
    return _client.respondsTo(ORSyncClientOperation::syncDataClass) ? _client.syncDataClass()
                                                                    : std::string();
}

std::int64_t ChangeOperations::revision() {
    return _client.respondsTo(ORSyncClientOperation::currentRevision) ? _client.currentRevision()
                                                                      : 0;
}

std::string ChangeOperations::versionToken() {
    if (!_client.respondsTo(ORSyncClientOperation::revisionVersionToken))
        return {};
    const platform::Value token = _client.revisionVersionToken();
    return token.isNull() ? std::string() : token.description();
}

ExportedChanges ChangeOperations::exportChanges(const ChangeRange& range,
                                                const Dictionary& syncParams, ParamsSink params,
                                                PieceOutputStream::Sink pieces) {
    if (!_client.respondsTo(ORSyncClientOperation::getChanges))
        return {unsupported("export changes"), 0, {}};
    const std::scoped_lock lock(_oneAtATime);
    const auto ending = std::make_shared<Ending>();
    const auto stream = std::make_shared<PieceOutputStream>(
        std::move(pieces), [ending](const Error& error) { ending->come(error, 0); });
    stream->open();
    startGuarded(*ending, [&] {
        _client.getChangesForSyncType(
            range.syncType, range.endpointType, range.after, range.upTo, syncParams, stream, params,
            [](std::uint64_t, std::uint64_t) {},
            [ending](const OptionalError& error) { ending->come(error, 0); });
    });
    ExportedChanges result{ending->wait().error, 0, {}};
    const OptionalError written = stream->finish();
    stream->close();
    if (!result.error)
        result.error = written;
    result.size = stream->size();
    result.hash = stream->hash();
    return result;
}

ImportedChanges ChangeOperations::importChanges(std::uint32_t syncType, const std::string& path,
                                                const Dictionary& params) {
    if (!_client.respondsTo(ORSyncClientOperation::applyChanges))
        return {unsupported("import changes"), 0};
    std::unique_ptr<platform::InputStream> file = _files.openInputStream(path);
    if (!file)
        return {Error(platform::POSIXErrorDomain, ENOENT, "the received changes cannot be read"),
                0};
    const std::scoped_lock lock(_oneAtATime);
    const auto ending = std::make_shared<Ending>();
    const auto stream = std::make_shared<BoundInputStream>(
        std::move(file), [ending](const Error& error) { ending->come(error, 0); });
    startGuarded(*ending, [&] {
        _client.applyChangesForSyncType(
            syncType, PeerEndpoint, stream, params, [](std::uint64_t, std::uint64_t) {},
            [ending](const OptionalError& error, std::int64_t revision) {
                ending->come(error, revision);
            });
    });
    return ending->wait();
}

OptionalError ChangeOperations::reset() {
    if (!_client.respondsTo(ORSyncClientOperation::resetSyncData))
        return unsupported("reset changes");
    const std::scoped_lock lock(_oneAtATime);
    const auto ending = std::make_shared<Ending>();
    startGuarded(*ending, [&] {
        _client.resetSyncDataWithCompletion(
            [ending](const OptionalError& error) { ending->come(error, 0); });
    });
    return ending->wait().error;
}

void ChangeOperations::sessionCompleted(const OptionalError& error, bool allAssetsTransferred) {
    if (_client.respondsTo(ORSyncClientOperation::syncSessionCompleted))
        _client.syncSessionCompletedWithError(error, allAssetsTransferred);
}

}  // namespace orlith
