#include "device/orlith/session.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <exception>

#include "device/orlith/daemon_log.h"
#include "device/orlith/session_error.h"
#include "device/orlith/staged_media.h"

namespace orlith {
namespace {

using platform::Error;
using platform::LogLevel;
using platform::OptionalError;

// What may wait for filing, in bytes of received files.
constexpr std::size_t QueueBudget = 16 << 20;
// How long a host has to take notice of a failure before its stream is cut.
constexpr std::chrono::seconds FailureGrace{5};

}  // namespace

Session::Session(const SessionServices& services, SessionStream& stream)
    : _services(services),
      _stream(stream),
      _filer(services.client, services.mediaLibrary, services.library, services.files,
             services.staging),
      _queue(QueueBudget) {}

Session::~Session() = default;

OptionalError Session::run() {
    try {
        link::FromHost message;
        while (!_failed && _stream.read(message))
            if (!_failed)
                handle(message);
    } catch (const SessionError& error) {
        fail(error.error());
    } catch (const std::exception& error) {
        fail(internalError(error.what()));
    }
    close();
    const std::scoped_lock lock(_stateMutex);
    if (!_failure && !_endedInOrder)
        return Error(platform::POSIXErrorDomain, ECONNRESET, "the host left before the end");
    return _failure;
}

void Session::handle(const link::FromHost& message) {
    using Kind = link::FromHost::MessageCase;
    if (_reception && message.message_case() != Kind::kChunk &&
        message.message_case() != Kind::kCancel)
        throw protocolError("a file was not sent to its end");
    switch (message.message_case()) {
        case Kind::kOpen:
            return open(message.open());
        case Kind::kPrepare:
            return prepare(message.prepare());
        case Kind::kFile:
            return beginSessionFile(message.file());
        case Kind::kChunk:
            return receiveChunk(message.chunk());
        case Kind::kReconcile:
            return reconcile(message.reconcile());
        case Kind::kOutstanding:
            return listOutstanding();
        case Kind::kTransfer:
            return beginTransfer(message.transfer());
        case Kind::kTransferFailed:
            return transferFailed(message.transfer_failed());
        case Kind::kUpload:
            return sendUpload(message.upload());
        case Kind::kUploadDone:
            return uploadDone(message.upload_done());
        case Kind::kKenningConfiguration:
            return storeKenningConfiguration(message.kenning_configuration());
        case Kind::kEnd:
            return end(message.end().success());
        case Kind::kCancel:
            return cancelImport();
        case Kind::kPartial:
            return answerPartialQuery(message.partial());
        case Kind::MESSAGE_NOT_SET:
            throw protocolError("a message of a kind that this device does not know");
    }
}

void Session::require(Step atLeast, Step atMost, const char* what) const {
    if (_step < atLeast || _step > atMost)
        throw protocolError(fmt::format("{} came out of order", what));
}

bool Session::send(const link::FromDevice& message) {
    return _stream.write(message);
}

void Session::post(std::function<void()> job, std::size_t cost) {
    _queue.push(cost, [this, job = std::move(job)] { runGuarded(job); });
}

void Session::runGuarded(const std::function<void()>& job) {
    if (_failed)
        return;
    try {
        job();
        return;
    } catch (const SessionError& error) {
        fail(error.error());
    } catch (const std::exception& error) {
        fail(internalError(error.what()));
    } catch (...) {
        fail(internalError("an exception of unknown kind"));
    }
    giveUpWaitingForHost();
}

void Session::fail(const Error& error, const std::string& owner) {
    {
        const std::scoped_lock lock(_stateMutex);
        if (_failure)
            return;
        _failure = error;
        _failed = true;
    }
    log(LogLevel::Error, "the session failed: " + error.description());
    link::FromDevice message;
    fillFailure(error, *message.mutable_failed()->mutable_failure());
    message.mutable_failed()->set_owner(owner);
    send(message);
}

// On the worker. A host that reads its messages closes the stream after a failure; one that does
// not must not keep the device busy.
void Session::giveUpWaitingForHost() {
    std::unique_lock lock(_stateMutex);
    if (!_readerIsDone.wait_for(lock, FailureGrace, [this] { return _readerDone; }))
        _stream.cancel();
}

void Session::close() {
    {
        const std::scoped_lock lock(_stateMutex);
        _readerDone = true;
        _readerIsDone.notify_all();
    }
    if (_holdsSlot)
        _services.slot.hostLeft();
    if (_step != Step::Ended) {
        _abandoned = true;
        if (_importPending)
            cancelImport();
    }
    _queue.finish();
    if (!_holdsSlot)
        return;
    if (!_endedInOrder)
        abandon();
    _services.library.sessionEnded();
    _services.slot.release();
}

// Leaves the device as if the session had ended: nothing of it may hold up the next one. Each step
// is guarded by itself.
void Session::abandon() {
    const auto guarded = [this](const char* what, const std::function<void()>& step) {
        try {
            step();
        } catch (const std::exception& error) {
            log(LogLevel::Error, fmt::format("{} failed: {}", what, error.what()));
        } catch (...) {
            log(LogLevel::Error, fmt::format("{} failed", what));
        }
    };
    log(LogLevel::Warning, "the session of " + _owner.description() + " was abandoned");
    guarded("putting media back", [this] { putMediaBack(_services.files); });
    guarded("removing the host's data", [this] { removeHostData(); });
    if (_transfersBegan)
        guarded("ending the transfers", [this] { endTransfers(false); });
    else if (_wasPrepared)
        guarded("resuming the background tasks", [this] { resumeBackgroundTasks(); });
    guarded("emptying the staging area", [this] { _services.staging.sweep(false); });
}

void Session::log(LogLevel level, std::string message) {
    logLine(_services.log, level, "session", std::move(message));
}

}  // namespace orlith
