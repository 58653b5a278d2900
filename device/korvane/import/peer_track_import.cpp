#include "device/korvane/import/peer_track_import.h"

#include <algorithm>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/peer_import_context.h"
#include "device/korvane/import/playlist_entries.h"
#include "device/korvane/import/record_columns.h"
#include "platform/media_library.h"

namespace korvane {

namespace {

// Another entry's persistent id or sync id: an asset's identifier means one track.
constexpr char IsUsedID[] =
    "SELECT EXISTS (SELECT 1 FROM item_store WHERE sync_id = ?1 AND sync_id <> 0)"
    " OR EXISTS (SELECT 1 FROM item WHERE item_pid = ?1)"
    " OR EXISTS (SELECT 1 FROM container WHERE container_pid = ?1)"
    " OR EXISTS (SELECT 1 FROM container WHERE sync_id = ?1 AND sync_id <> 0)";
constexpr char IsUsedIDOfPlaylist[] =
    "SELECT EXISTS (SELECT 1 FROM container WHERE container_pid = ?1)"
    " OR EXISTS (SELECT 1 FROM container WHERE sync_id = ?1 AND sync_id <> 0)";

}  // namespace

PeerTrackImport::PeerTrackImport(PeerImportContext& context)
    : _context(context),
      _finder(context.database, EntityKind::Track, context.peerID, &context.namedTracks),
      _names(context.database, context.newIDs),
      _places(context.database),
      _statements(context.database),
      _merging(context.database),
      _plays(context.database, context.origin),
      _removed(context.database),
      _onlyPlaylistsUseIDs(context.hadNoTracks && !_removed.remembersAny()),
      _isUsedID(context.database.prepare(_onlyPlaylistsUseIDs ? IsUsedIDOfPlaylist : IsUsedID)) {}

void PeerTrackImport::apply(std::span<const qorx::Record* const> batch) {
    for (const qorx::Record* entry : batch) {
        const qorx::Track& record = entry->track();
        if (const auto found = find(record)) {
            merge(*found, record);
        } else if (!isDeletedHere(record)) {
            _pending.push_back(&record);
        }
    }
    insertPending();
}

std::optional<FoundEntry> PeerTrackImport::find(const qorx::Track& record) {
    return _context.hadNoTracks ? std::nullopt : _finder.findPeers(_context.idsOf(record));
}

// A record of an incarnation that was deleted here brings nothing back; its sender is told again.
bool PeerTrackImport::isDeletedHere(const qorx::Track& record) {
    const std::int64_t deletedMs =
        _context.deleted.deletedMs(EntityKind::Track, record.global_id());
    if (deletedMs == 0 || boundedMs(record.added_ms()) > deletedMs) {
        return false;
    }
    _context.origin.aboutToChange();
    _context.origin.noteNewsForPeer();
    _context.deleted.tell({EntityKind::Track, record.global_id(), deletedMs, record.media_type()},
                          OwnerOrigin, _context.newIDs);
    return true;
}

IncomingTrack PeerTrackImport::incoming(const qorx::Track& record) {
    IncomingTrack track;
    track.record = &record;
    track.bringsKenningData = false;
    track.globalID = record.global_id();
    track.dateAdded = record.date_added();
    track.addedMs = boundedMs(record.added_ms());
    track.metadataChangedMs = boundedMs(record.metadata_changed_ms());
    return track;
}

// A foreign track goes by the id that its device has for it, where nothing else here does.
std::int64_t PeerTrackImport::syncIDFor(std::int64_t persistentID) {
    if (_onlyPlaylistsUseIDs && _context.newIDs.isKnownUnused(persistentID)) {
        return persistentID;
    }
    _isUsedID->bindAll(persistentID);
    _isUsedID.step();
    const bool isUsed = _isUsedID->int64(0) != 0;
    _isUsedID->reset();
    return isUsed ? 0 : persistentID;
}

void PeerTrackImport::insertPending() {
    if (_pending.empty()) {
        return;
    }
    _context.origin.aboutToChange();
    const std::vector<TrackPlace> places = _places.of(_pending);
    std::vector<Inserted> inserted;
    inserted.reserve(_pending.size());
    for (std::size_t i = 0; i < _pending.size(); ++i) {
        inserted.push_back(insert(*_pending[i], places[i]));
    }
    const std::int64_t last = _statements.lastItemID();
    const std::int64_t first = last - static_cast<std::int64_t>(_pending.size()) + 1;
    _context.origin.giveRevisionsToNewTracks(first, last);
    for (std::size_t i = 0; i < _pending.size(); ++i) {
        const qorx::Track& record = *_pending[i];
        const std::int64_t pid = inserted[i].pid;
        _context.identities.claim(EntityKind::Track, record.persistent_id(), pid);
        _merging.writeMoments(pid, FieldMoments(), FieldMoments::of(record));
        if (!inserted[i].isRecalled) {
            _plays.add(pid, record);
            continue;
        }
        _plays.merge(pid, record);
        if (inserted[i].recordLacksSomething || _plays.holdsMore(pid, record)) {
            _context.origin.tellEverybody(EntityKind::Track, pid);
        }
    }
    _context.newTracks += std::ssize(_pending);
    _pending.clear();
    _hasInserted = true;
}

PeerTrackImport::Inserted PeerTrackImport::insert(const qorx::Track& record,
                                                  const TrackPlace& place) {
    IncomingTrack track = incoming(record);
    track.albumArtistPID = _names.albumArtist(record.album_artist());
    track.albumPID = _names.album(record.album(), track.albumArtistPID);
    track.itemArtistPID = _names.itemArtist(record.artist());
    track.sources = sourceBit(KV3SourceSync);
    track.syncID = syncIDFor(record.persistent_id());
    track.cloudArtworkToken = record.artwork_token();
    const auto recalled = _removed.recall(track.globalID, track);
    track.dateAdded = record.date_added();
    mergeOwnerValues(record, track);
    const Inserted inserted{recalled ? *recalled : _context.newIDs.next(), recalled.has_value(),
                            recalled && holdsMoreOwnerValues(track, record)};
    _statements.insert(inserted.pid, track, place);
    _context.namedTracks.add(_statements.lastItemID());
    if (recalled) {
        _removed.giveBack(track.globalID, inserted.pid);
    }
    return inserted;
}

void PeerTrackImport::merge(const FoundEntry& found, const qorx::Track& record) {
    _statements.openByItemID(found.rowID);
    _context.namedTracks.add(found.rowID);
    IncomingTrack track = incoming(record);
    const TrackMergeStatements::Plan plan = _merging.plan(_statements, found.pid, track);
    const bool isOtherFile = plan.takesOtherFile && _statements.hasOtherFile(record.content_hash());
    _statements.close();
    if (plan.changesAnything()) {
        _context.origin.aboutToChange();
        _context.namesMayBeUnused |= _merging.write(found, plan, track, _names);
        if (isOtherFile) {
            _statements.forgetFile(found.rowID);
        }
    }
    _plays.merge(found.pid, record);
    _context.identities.claim(EntityKind::Track, record.persistent_id(), found.pid);
    if (plan.recordLacksSomething || _plays.holdsMore(found.pid, record)) {
        _context.origin.tellEverybody(EntityKind::Track, found.pid);
    }
}

void PeerTrackImport::finish() {
    if (_hasInserted) {
        resolveWaitingEntries(_context.database);
        resolveEntriesOfPeer(_context.database, _context.peerID);
    }
}

}  // namespace korvane
