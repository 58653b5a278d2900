#include "device/orlith/mirror/serving_session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include "device/orlith/daemon_log.h"
#include "device/orlith/incoming_file.h"
#include "device/orlith/mirror/change_messages.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::LogLevel;
using platform::OptionalError;

constexpr std::size_t LongestUID = 128;
// Messages that wait for the worker; a companion that keeps to its own bounds asks for fewer.
constexpr std::size_t MostWaiting = 256;
// How long a companion has to take notice of the end before its stream is cut.
constexpr std::chrono::seconds LastGrace{5};

SessionError outOfOrder(const char* what) {
    return SessionError(
        Error(OrlithErrorDomain, OrlithErrorProtocol, fmt::format("{} came out of order", what)));
}

}  // namespace

ServingSession::ServingSession(const MirrorServices& services, ServingStream& stream)
    : _services(services),
      _stream(stream),
      _inbox(std::make_shared<Inbox<Item>>()),
      _source(
          services, [this](const link::FromFirst& message) { return send(message); },
          [inbox = _inbox](AssetAnswer answer) { inbox->put(std::move(answer)); }) {}

ServingSession::~ServingSession() = default;

OptionalError ServingSession::run() {
    std::thread worker([this] { work(); });
    link::FromCompanion message;
    while (!_failed && _stream.read(message) &&
           _inbox->putWhenRoom(std::move(message), MostWaiting)) {
    }
    {
        const std::scoped_lock lock(_mutex);
        _readerDone = true;
        _readerIsDone.notify_all();
    }
    _inbox->put(CompanionLeft{});
    worker.join();
    _inbox->close();
    cleanUp();
    const std::scoped_lock lock(_mutex);
    if (!_failure && !_endedInOrder)
        return Error(platform::POSIXErrorDomain, ECONNRESET,
                     "the other device left before the end");
    return _failure;
}

void ServingSession::work() {
    try {
        while (!_failed) {
            std::optional<Item> item = _inbox->takeUntil(_source.nextLook());
            _source.lookAtTheClock();
            if (!_failed && item && !handle(std::move(*item)))
                break;
        }
    } catch (const SessionError& error) {
        fail(error.error());
    } catch (const std::exception& error) {
        fail(internalError(error.what()));
    } catch (...) {
        fail(internalError("an exception of unknown kind"));
    }
    // The reader may wait for room.
    _inbox->close();
    giveUpWaitingForCompanion();
}

// A companion that reads its messages closes the stream after the last; one that does not must not
// keep the device busy.
void ServingSession::giveUpWaitingForCompanion() {
    std::unique_lock lock(_mutex);
    if (!_readerIsDone.wait_for(lock, LastGrace, [this] { return _readerDone; }))
        _stream.cancel();
}

bool ServingSession::handle(Item item) {
    if (std::holds_alternative<CompanionLeft>(item))
        return false;
    if (auto* answer = std::get_if<AssetAnswer>(&item)) {
        _source.answer(std::move(*answer));
        return true;
    }
    return handleMessage(std::get<link::FromCompanion>(item));
}

bool ServingSession::handleMessage(const link::FromCompanion& message) {
    using Kind = link::FromCompanion::MessageCase;
    if (!_isOpen && message.message_case() != Kind::kOpen)
        throw outOfOrder("a question before the opening");
    switch (message.message_case()) {
        case Kind::kOpen:
            open(message.open());
            return true;
        case Kind::kState:
            sendState();
            return true;
        case Kind::kDeletions:
            sendDeletions(message.deletions());
            return true;
        case Kind::kChanges:
            sendChanges(message.changes());
            return true;
        case Kind::kAcknowledge:
            acknowledge(message.acknowledge());
            return true;
        case Kind::kAsset:
            _source.ask(message.asset());
            return true;
        case Kind::kClose:
            close(message.close());
            return false;
        case Kind::MESSAGE_NOT_SET:
            break;
    }
    throw outOfOrder("a message of a kind that this device does not know");
}

void ServingSession::open(const link::PeerOpen& message) {
    if (_isOpen)
        throw outOfOrder("a second opening");
    if (message.protocol_version() != PeerProtocolVersion)
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol,
                                 "the two devices' programs do not fit together: bring both to "
                                 "the same version"));
    if (message.library_uid().empty() || message.library_uid().size() > LongestUID)
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol,
                                 "the other device's library has no usable identity"));
    const SessionOwner owner{fmt::format("a mirror to {}", printable(message.name())),
                             message.process_id(), std::chrono::steady_clock::now()};
    std::string holder;
    const bool acquired = _services.device.slot.acquire(
        owner,
        [this](const std::string& reason) {
            fail(Error(OrlithErrorDomain, OrlithErrorStopping, reason));
            _inbox->put(CompanionLeft{});
        },
        holder);
    if (!acquired)
        return fail(
            Error(OrlithErrorDomain, OrlithErrorBusy, "the other device is busy with " + holder),
            holder);
    _isOpen = true;
    _companionUID = message.library_uid();
    _companionName = printable(message.name());
    _services.device.library.sessionBegan();
    logLine(_services.device.log, LogLevel::Info, "peer", "serving " + owner.description());
    link::FromFirst answer;
    link::PeerOpened& opened = *answer.mutable_opened();
    opened.set_protocol_version(PeerProtocolVersion);
    opened.set_library_uid(_services.changes.versionToken());
    opened.set_name(_services.deviceName);
    send(answer);
}

void ServingSession::sendState() {
    link::FromFirst answer;
    link::PeerState& state = *answer.mutable_state();
    state.set_library_uid(_services.changes.versionToken());
    state.set_revision(_services.changes.revision());
    state.set_acknowledged_revision(_services.peers.peer(_companionUID).acknowledged);
    send(answer);
}

void ServingSession::sendDeletions(const link::PlaylistDeletionsRequest& message) {
    OptionalError error;
    const std::vector<std::int64_t> revisions =
        _services.peers.lineUpPlaylistDeletions(message.after(), &error);
    throwIf(error);
    link::FromFirst answer;
    if (revisions.size() > 1)
        answer.mutable_deletions()->mutable_revisions()->Assign(revisions.begin(), revisions.end());
    answer.mutable_deletions()->set_revision(_services.changes.revision());
    send(answer);
}

void ServingSession::sendChanges(const link::ChangesRequest& message) {
    platform::PropertyLists& lists = _services.device.operatingSystem.propertyLists();
    const platform::Dictionary params = parametersOf(lists, message.sync_params());
    const std::int64_t revision = _services.changes.revision();
    _services.peers.setExportTarget(_companionUID);
    const ExportedChanges exported = _services.changes.exportChanges(
        {message.sync_type(), message.endpoint_type(), message.after(), message.up_to()}, params,
        [&](const platform::Dictionary& exportParams) {
            link::FromFirst answer;
            answer.mutable_changes()->set_params(parameterBytes(lists, exportParams));
            send(answer);
        },
        [this](std::string piece) {
            link::FromFirst answer;
            answer.mutable_changes()->set_data(std::move(piece));
            return send(answer);
        });
    _services.peers.setExportTarget({});
    link::FromFirst answer;
    link::ChangesEnd& end = *answer.mutable_changes()->mutable_end();
    if (exported.error)
        fillFailure(*exported.error, *end.mutable_failure());
    end.set_size(exported.size);
    end.set_content_hash(hashText(exported.hash));
    end.set_revision(message.up_to() == 0 ? revision : std::min(revision, message.up_to()));
    send(answer);
}

void ServingSession::acknowledge(const link::Acknowledge& message) {
    if (message.revision() < 0 || message.revision() > _services.changes.revision())
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol,
                                 "a revision was acknowledged that this library does not have"));
    throwIf(_services.peers.recordAcknowledged(_companionUID, message.revision()));
    link::FromFirst answer;
    answer.mutable_acknowledged();
    send(answer);
}

void ServingSession::close(const link::PeerClose& message) {
    _services.changes.sessionCompleted(std::nullopt, message.success());
    _endedInOrder = true;
    logLine(_services.device.log, LogLevel::Info, "peer",
            "the mirror to " + _companionName + " ended");
    // Before the companion hears of it: what its owner asks for next must not find this one busy.
    cleanUp();
    link::FromFirst answer;
    answer.mutable_closed();
    send(answer);
}

void ServingSession::cleanUp() {
    if (!std::exchange(_isOpen, false))
        return;
    _services.device.library.sessionEnded();
    _services.device.slot.release();
}

bool ServingSession::send(const link::FromFirst& message) {
    return _stream.write(message);
}

void ServingSession::fail(const Error& error, const std::string& owner) {
    {
        const std::scoped_lock lock(_mutex);
        if (_failure)
            return;
        _failure = error;
        _failed = true;
    }
    logLine(_services.device.log, LogLevel::Error, "peer",
            "the session failed: " + error.description());
    link::FromFirst message;
    fillFailure(error, *message.mutable_failed()->mutable_failure());
    message.mutable_failed()->set_owner(owner);
    send(message);
}

}  // namespace orlith
