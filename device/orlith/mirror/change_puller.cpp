#include "device/orlith/mirror/change_puller.h"

#include <algorithm>

#include "device/orlith/session_error.h"

namespace orlith {
namespace {

using platform::Error;

// Whether what was fetched for some media types holds all of the others too.
bool covers(std::uint32_t fetched, std::uint32_t wanted) {
    return fetched == 0 || (wanted != 0 && (wanted & ~fetched) == 0);
}

std::uint32_t together(std::uint32_t some, std::uint32_t others) {
    return some == 0 || others == 0 ? 0 : some | others;
}

}  // namespace

void ChangePuller::pull(const std::string& name, std::uint32_t mediaTypes,
                        link::MirrorSummary& summary) {
    const link::PeerState state = _first.state();
    _uid = state.library_uid();
    const PeerRecord known = _services.peers.peer(_uid);
    const Start start = startOf(state, mediaTypes);
    // What an earlier question has fetched is asked for again: a full exchange takes away the rest.
    _mediaTypes = known.received != 0 ? together(known.mediaTypes, mediaTypes) : mediaTypes;
    summary.set_from_revision(start.after);
    summary.set_to_revision(state.revision());
    summary.set_full(start.full);
    tellStarted(name, summary);
    if (state.revision() <= start.after) {
        if (!start.full && start.after > known.received)
            record(start.after);
        else if (!start.full && state.acknowledged_revision() < start.after)
            _first.acknowledge(start.after);
        return;
    }
    std::vector<std::int64_t> deletions;
    std::int64_t upTo = state.revision();
    if (!start.full) {
        const link::PlaylistDeletions answer = _first.deletions(start.after);
        deletions.assign(answer.revisions().begin(), answer.revisions().end());
        upTo = answer.revision();
    }
    summary.set_to_revision(upTo);
    exchange(start.full ? ORSyncReset : SyncChanges, start.after, upTo, summary);
    // Each exchange carries one deletion, the first after its revision; no track travels again.
    for (std::size_t i = 1; i < deletions.size(); ++i) {
        record(deletions[i - 1]);
        exchange(SyncChanges, deletions[i] - 1, 0, summary);
    }
    record(upTo);
}

ChangePuller::Start ChangePuller::startOf(const link::PeerState& state,
                                          std::uint32_t mediaTypes) const {
    const PeerRecord known = _services.peers.peer(_uid);
    const bool full = known.received == 0 || state.revision() < known.received ||
                      !covers(known.mediaTypes, mediaTypes);
    if (full)
        return {0, true};
    // What an import from here gave revisions there is known here.
    return {std::max(known.received, std::min(state.acknowledged_revision(), state.revision())),
            false};
}

void ChangePuller::exchange(std::uint32_t syncType, std::int64_t after, std::int64_t upTo,
                            link::MirrorSummary& summary) {
    link::ChangesRequest request;
    request.set_sync_type(syncType);
    request.set_endpoint_type(PeerEndpoint);
    request.set_after(after);
    request.set_up_to(upTo);
    request.set_sync_params(parameterBytes(_services.device.operatingSystem.propertyLists(),
                                           exportParameters(_mediaTypes)));
    ChangeSpool spool(_services.device.files);
    _first.changes(request, [&](const link::ChangeStream& piece) {
        const bool last = spool.take(piece);
        tell(link::MirrorProgress::FETCHING_CHANGES, spool.size());
        return last;
    });
    summary.set_bytes(summary.bytes() + spool.size());
    apply(syncType, spool, summary);
}

void ChangePuller::apply(std::uint32_t syncType, const ChangeSpool& spool,
                         link::MirrorSummary& summary) {
    const platform::Dictionary params =
        parametersOf(_services.device.operatingSystem.propertyLists(), spool.params());
    const platform::Value length =
        params.contains(PlaylistLengthKey) ? params.find(PlaylistLengthKey)->second : 0;
    if (!holdsChanges(_services.device.files, spool, length.unsignedValue()))
        return;
    tell(link::MirrorProgress::APPLYING_CHANGES, 0);
    if (syncType == ORSyncReset)
        _services.peers.expectFullExchange(_uid);
    _importing = true;
    const ImportedChanges imported =
        _services.changes.importChanges(syncType, spool.path(), params);
    _importing = false;
    // What failed early has not used it up.
    _services.peers.expectFullExchange({});
    throwIf(imported.error);
    countAsSent();
    const ImportEffects effects = _services.peers.lastImportEffects();
    summary.set_playlists_changed(summary.playlists_changed() + effects.playlistsChanged);
    summary.set_tracks_changed(summary.tracks_changed() + effects.tracksChanged);
    summary.set_playlists_deleted(summary.playlists_deleted() + effects.playlistsDeleted);
    summary.set_tracks_deleted(summary.tracks_deleted() + effects.tracksDeleted);
}

// The peer has what its own changes became here, so that the way back does not carry them.
void ChangePuller::countAsSent() {
    const std::optional<ImportRevisions> given = _services.peers.lastImportRevisions();
    if (given && !given->hasNewsForPeer &&
        _services.peers.peer(_uid).acknowledged == given->first - 1)
        throwIf(_services.peers.recordAcknowledged(_uid, given->last));
}

void ChangePuller::record(std::int64_t revision) {
    throwIf(_services.peers.recordReceived(_uid, revision, _mediaTypes));
    _first.acknowledge(revision);
}

void ChangePuller::tellStarted(const std::string& name, const link::MirrorSummary& summary) {
    link::MirrorEvent event;
    link::MirrorStarted& started = *event.mutable_started();
    started.set_library_uid(_uid);
    started.set_name(name);
    started.set_from_revision(summary.from_revision());
    started.set_to_revision(std::max(summary.from_revision(), summary.to_revision()));
    started.set_full(summary.full());
    _events(event);
}

void ChangePuller::tell(link::MirrorProgress::Phase phase, std::uint64_t done) {
    link::MirrorEvent event;
    event.mutable_progress()->set_phase(phase);
    event.mutable_progress()->set_done(done);
    _events(event);
}

}  // namespace orlith
