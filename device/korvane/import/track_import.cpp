#include "device/korvane/import/track_import.h"

#include "common/qorx/qorx.pb.h"
#include "device/korvane/import/import_context.h"
#include "device/korvane/import/playlist_entries.h"
#include "device/korvane/import/record_columns.h"

namespace korvane {

TrackImport::TrackImport(ImportContext& context)
    : _context(context),
      _finder(context.database, EntityKind::Track, context.peerID, &context.namedTracks),
      _names(context.database, context.newIDs),
      _places(context.database),
      _statements(context.database),
      _plays(context.database, context.origin),
      _removed(context.database),
      _deleted(context.database),
      _fieldTimes(context.database) {}

void TrackImport::apply(std::span<const qorx::Record* const> batch) {
    for (const qorx::Record* entry : batch) {
        const qorx::Track& record = entry->track();
        if (_context.unreported.isDeleted(EntityKind::Track, record.sync_id(),
                                          record.global_id())) {
            continue;
        }
        // A second record of the same track finds what the first has made.
        if (!_pending.empty() && _pending.back()->sync_id() == record.sync_id()) {
            insertPending();
        }
        if (findRow(record)) {
            update(record);
        } else {
            _pending.push_back(&record);
        }
    }
    insertPending();
}

void TrackImport::insertPending() {
    if (_pending.empty()) {
        return;
    }
    _context.origin.aboutToChange();
    const std::vector<TrackPlace> places = _places.of(_pending);
    std::vector<std::int64_t> pids;
    pids.reserve(_pending.size());
    for (std::size_t i = 0; i < _pending.size(); ++i) {
        pids.push_back(insert(*_pending[i], places[i]));
    }
    const std::int64_t last = _statements.lastItemID();
    _context.origin.giveRevisionsToNewTracks(last - static_cast<std::int64_t>(_pending.size()) + 1,
                                             last);
    for (std::size_t i = 0; i < _pending.size(); ++i) {
        _plays.merge(pids[i], *_pending[i]);
    }
    _pending.clear();
    _hasInserted = true;
}

// Opens the row of the track that the record means.
bool TrackImport::findRow(const qorx::Track& record) {
    if (_context.hadNoTracks && !_context.hasTwins) {
        return false;
    }
    const RecordIDs ids = RecordIDs::of(record);
    if (!_context.hadNoTracks) {
        if (const auto own = _finder.byOwnID(ids.ownID)) {
            return _statements.openByItemID(own->rowID);
        }
    }
    if (_statements.openBySyncID(ids.syncID)) {
        return true;
    }
    if (_context.hadNoTracks) {
        return false;
    }
    auto found = _finder.byPeersID(ids.persistentID);
    if (!found) {
        found = _finder.byGlobalID(ids.globalID);
    }
    return found && _statements.openByItemID(found->rowID);
}

IncomingTrack TrackImport::incoming(const qorx::Track& record) {
    IncomingTrack track;
    track.record = &record;
    track.syncID = record.sync_id();
    track.albumArtistPID = _names.albumArtist(record.album_artist());
    track.albumPID = _names.album(record.album(), track.albumArtistPID);
    track.itemArtistPID = _names.itemArtist(record.artist());
    return track;
}

void TrackImport::update(const qorx::Track& record) {
    const std::int64_t itemID = _statements.itemID();
    const std::int64_t pid = _statements.pid();
    IncomingTrack track = incoming(record);
    _statements.readHeld(track);
    track.sources |= _context.sourceBit;
    if (record.global_id() != 0) {
        track.globalID = record.global_id();
    }
    if (record.date_added() != 0) {
        track.dateAdded = record.date_added();
    }
    mergeOwnerValues(record, track);

    const TrackDifferences different = _statements.differences(track);
    const bool isOtherFile = _statements.hasOtherFile(record.content_hash());
    _statements.close();
    _context.namedTracks.add(itemID);
    if (different.tables.any()) {
        _context.origin.aboutToChange();
        _context.namesMayBeUnused |= different.tables[ItemTable];
        _statements.update(itemID, track, different.tables);
        _fieldTimes.setChanged(pid, different.fields, _context.nowMs);
        if (isOtherFile) {
            _statements.forgetFile(itemID);
        }
    }
    _plays.merge(pid, record);
}

// Returns the new track's persistent id.
std::int64_t TrackImport::insert(const qorx::Track& record, const TrackPlace& place) {
    IncomingTrack track = incoming(record);
    track.sources = _context.sourceBit;
    track.globalID = record.global_id();
    const auto recalled = _removed.recall(track.globalID, track);
    if (record.date_added() != 0) {
        track.dateAdded = record.date_added();
    } else if (track.dateAdded == 0) {
        track.dateAdded = _context.nowMs / 1000;
    }
    track.addedMs = _deleted.birthMs(EntityKind::Track, track.globalID, _context.nowMs);
    track.metadataChangedMs = track.addedMs;
    mergeOwnerValues(record, track);
    const std::int64_t pid = recalled ? *recalled : _context.newIDs.next();
    _statements.insert(pid, track, place);
    _context.namedTracks.add(_statements.lastItemID());
    if (recalled) {
        _removed.giveBack(track.globalID, pid);
    }
    return pid;
}

void TrackImport::finish() {
    if (_hasInserted) {
        resolveWaitingEntries(_context.database);
    }
}

}  // namespace korvane
