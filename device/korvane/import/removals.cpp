#include "device/korvane/import/removals.h"

#include <vector>

#include "device/korvane/import/import_context.h"
#include "device/korvane/track_deletion.h"

namespace korvane {

namespace {

// The entries with the import's claim that no record has named: `select` gives row ids and pids.
std::vector<std::int64_t> unnamed(common::Database& database, const char* select, std::int64_t bit,
                                  const NamedEntries& named) {
    std::vector<std::int64_t> pids;
    common::Query rows = database.query(select, bit);
    while (rows.step()) {
        if (!named.contains(rows->int64(0))) {
            pids.push_back(rows->int64(1));
        }
    }
    return pids;
}

}  // namespace

Removals::Removals(ImportContext& context)
    : _context(context),
      _tracks(context.database, EntityKind::Track, context.peerID, &context.namedTracks),
      _playlists(context.database, EntityKind::Playlist, context.peerID, &context.namedPlaylists) {}

void Removals::applyDeletion(EntityKind kind, const RecordIDs& ids) {
    const bool isTrack = kind == EntityKind::Track;
    const NamedEntries& named = isTrack ? _context.namedTracks : _context.namedPlaylists;
    const auto found = (isTrack ? _tracks : _playlists).find(ids);
    if (!found || named.contains(found->rowID)) {
        return;
    }
    _context.origin.aboutToChange();
    if (isTrack) {
        _context.namesMayBeUnused = true;
        deleteTrack(_context.database, found->pid, DeletionReach::everywhere(_context.nowMs));
    } else {
        deletePlaylist(_context.database, found->pid, DeletionReach::everywhere(_context.nowMs));
    }
}

void Removals::takeClaimOffUnnamed() {
    const auto tracks =
        unnamed(_context.database, "SELECT item_id, item_pid FROM item WHERE sources & ? <> 0",
                _context.sourceBit, _context.namedTracks);
    if (!tracks.empty()) {
        _context.origin.aboutToChange();
        _context.namesMayBeUnused = true;
        removeTrackSources(_context.database, _context.sourceBit, tracks);
    }
    const auto playlists =
        unnamed(_context.database,
                "SELECT container_id, container_pid FROM container WHERE sources & ? <> 0",
                _context.sourceBit, _context.namedPlaylists);
    if (!playlists.empty()) {
        _context.origin.aboutToChange();
        removePlaylistSources(_context.database, _context.sourceBit, playlists);
    }
}

}  // namespace korvane
