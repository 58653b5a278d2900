#include "device/orlith/mirror/mirror_session.h"

#include <fmt/format.h>
#include <unistd.h>

#include <exception>
#include <random>

#include "device/orlith/daemon_log.h"
#include "device/orlith/mirror/asset_puller.h"
#include "device/orlith/names.h"
#include "device/orlith/recovery.h"
#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;
using platform::LogLevel;
using platform::OptionalError;

// Who hosts are to the plug-in; a companion's preparation has none.
constexpr char MirrorVersion[] = "mirror";

std::uint32_t randomSessionID() {
    std::uniform_int_distribution<std::uint32_t> id(1, UINT32_MAX);
    std::random_device source;
    return id(source);
}

}  // namespace

MirrorSession::MirrorSession(const MirrorServices& services, CompanionStream& stream,
                             const MirrorEvents& events, std::uint32_t mediaTypes)
    : _services(services),
      _events(events),
      _mediaTypes(mediaTypes),
      _first(stream),
      _changes(services, _first, events) {}

MirrorOutcome MirrorSession::run() {
    MirrorOutcome outcome;
    try {
        open();
        prepare();
        pull(outcome.summary);
    } catch (const SessionError& error) {
        outcome.error = error.error();
    } catch (const std::exception& error) {
        outcome.error = internalError(error.what());
    } catch (...) {
        outcome.error = internalError("an exception of unknown kind");
    }
    outcome.peerUID = _peerUID;
    windUp(outcome.error);
    return outcome;
}

void MirrorSession::cancel(const Error& reason) {
    {
        const std::scoped_lock lock(_mutex);
        if (!_cancelled)
            _cancelled = reason;
    }
    _first.cancel(reason);
    guarded("cancelling the import", [this] {
        if (_changes.isImporting() &&
            _services.device.client.respondsTo(ORClientOperation::cancelSyncOperations))
            _services.device.client.cancelSyncOperations();
    });
}

// This device first, then the other: whoever finds the other taken lets go of its own and tries
// again later, so two devices that mirror each other never wait for each other.
void MirrorSession::open() {
    const SessionOwner owner{"a mirror from another device", static_cast<std::uint32_t>(::getpid()),
                             std::chrono::steady_clock::now()};
    std::string holder;
    _holdsSlot = _services.device.slot.acquire(
        owner,
        [this](const std::string& reason) {
            cancel(Error(OrlithErrorDomain, OrlithErrorStopping, reason));
        },
        holder);
    if (!_holdsSlot)
        throw SessionError(
            Error(OrlithErrorDomain, OrlithErrorBusy, "this device is busy with " + holder));
    link::PeerOpen message;
    message.set_protocol_version(PeerProtocolVersion);
    message.set_library_uid(_services.changes.versionToken());
    message.set_name(_services.deviceName);
    message.set_process_id(static_cast<std::uint32_t>(::getpid()));
    const link::PeerOpened opened = _first.open(message);
    if (opened.protocol_version() != PeerProtocolVersion || opened.library_uid().empty())
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorProtocol,
                                 "the two devices' programs do not fit together: bring both to "
                                 "the same version"));
    if (opened.library_uid() == message.library_uid())
        throw SessionError(Error(OrlithErrorDomain, OrlithErrorRefused,
                                 "a device cannot be mirrored from itself"));
    _peerUID = opened.library_uid();
    _services.device.library.sessionBegan();
    _peerName = opened.name();
    logLine(_services.device.log, LogLevel::Info, "mirror",
            "a mirror from " + printable(opened.name()) + " began");
}

void MirrorSession::prepare() {
    tell(link::MirrorProgress::PREPARING);
    const SessionServices& device = _services.device;
    recoverLeftovers(device.files, device.staging, device.library, device.notices);
    throwIf(device.staging.makeDirectories());
    if (!device.client.respondsTo(ORClientOperation::prepareForSyncWithHostAnchorTorvelID))
        return;
    _wasPrepared = true;
    OptionalError error;
    if (!device.client.prepareForSyncWithHostAnchor(
            device.library.anchor(), [](double) {}, randomSessionID(), MirrorVersion, &error))
        throw SessionError(error.value_or(
            Error(OrlithErrorDomain, OrlithErrorRefused, "the device refused to prepare")));
    throwIfCancelled();
}

void MirrorSession::pull(link::MirrorSummary& summary) {
    tell(link::MirrorProgress::FETCHING_CHANGES);
    _changes.pull(_peerName, _mediaTypes, summary);
    throwIfCancelled();
    tell(link::MirrorProgress::LISTING_ASSETS);
    AssetPuller assets(_services, _first, _events, _peerUID);
    assets.run(assets.listWanted(), summary);
    _allAssets = summary.failed() == 0;
    tell(link::MirrorProgress::FINISHING);
    _first.close(_allAssets);
    _endedInOrder = true;
}

// Each step is guarded by itself: nothing of this session may hold up the next one.
void MirrorSession::windUp(const OptionalError& error) {
    if (!_holdsSlot)
        return;
    if (!_peerUID.empty()) {
        if (_wasPrepared)
            guarded("ending the assets", [this] { _services.assets.assetSyncDidComplete(); });
        guarded("ending the changes",
                [&] { _services.changes.sessionCompleted(error, !error && _allAssets); });
        guarded("emptying the staging area",
                [this] { _services.device.staging.sweep(_endedInOrder && _allAssets); });
        guarded("ending the library's session",
                [this] { _services.device.library.sessionEnded(); });
        logLine(_services.device.log, error ? LogLevel::Error : LogLevel::Info, "mirror",
                error ? "the mirror failed: " + error->description() : "the mirror ended");
    }
    _services.device.slot.release();
}

void MirrorSession::guarded(const char* what, const std::function<void()>& step) {
    try {
        step();
    } catch (const std::exception& failure) {
        logLine(_services.device.log, LogLevel::Error, "mirror",
                fmt::format("{} failed: {}", what, failure.what()));
    } catch (...) {
        logLine(_services.device.log, LogLevel::Error, "mirror", fmt::format("{} failed", what));
    }
}

void MirrorSession::tell(link::MirrorProgress::Phase phase) {
    link::MirrorEvent event;
    event.mutable_progress()->set_phase(phase);
    _events(event);
}

void MirrorSession::throwIfCancelled() {
    const std::scoped_lock lock(_mutex);
    throwIf(_cancelled);
}

}  // namespace orlith
