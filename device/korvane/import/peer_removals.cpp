#include "device/korvane/import/peer_removals.h"

#include <vector>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/peer_import_context.h"
#include "device/korvane/track_deletion.h"
#include "platform/media_library.h"

namespace korvane {

namespace {

struct Statements {
    const char* birth;
    const char* isForeign;
    const char* all;
};
constexpr Statements Tracks = {
    "SELECT added_ms FROM item WHERE item_pid = ?",
    "SELECT EXISTS (SELECT 1 FROM item WHERE item_pid = ? AND sources & ? <> 0)",
    "SELECT item_id, item_pid FROM item",
};
// The library's own playlists and those in place of them do not travel.
constexpr Statements Playlists = {
    "SELECT added_ms FROM container WHERE container_pid = ?",
    "SELECT EXISTS (SELECT 1 FROM container WHERE container_pid = ? AND sources & ? <> 0)",
    "SELECT container_id, container_pid FROM container WHERE built_in_kind = 0",
};

const Statements& statementsFor(EntityKind kind) {
    return kind == EntityKind::Track ? Tracks : Playlists;
}

}  // namespace

PeerRemovals::PeerRemovals(PeerImportContext& context, EntityKind kind)
    : _context(context),
      _kind(kind),
      _finder(context.database, kind, context.peerID,
              kind == EntityKind::Track ? &context.namedTracks : &context.namedPlaylists) {}

void PeerRemovals::apply(const qorx::Deletion& record) {
    const std::int64_t deletedMs = boundedMs(record.deleted_ms());
    if (const auto found = _finder.findPeers(_context.idsOf(record))) {
        applyToLiving(*found, deletedMs);
    } else {
        remember(record, deletedMs);
    }
}

void PeerRemovals::applyToLiving(const FoundEntry& found, std::int64_t deletedMs) {
    // A deletion without a moment means whatever is there.
    if (deletedMs != 0 &&
        _context.database.int64(statementsFor(_kind).birth, found.pid) > deletedMs) {
        _context.origin.tellEverybody(_kind, found.pid);
        return;
    }
    _context.origin.aboutToChange();
    if (_kind == EntityKind::Track) {
        _context.namesMayBeUnused = true;
        deleteTrack(_context.database, found.pid, DeletionReach::everywhere(deletedMs));
    } else {
        deletePlaylist(_context.database, found.pid, DeletionReach::everywhere(deletedMs));
    }
    _context.deleted.noteDeletion();
}

void PeerRemovals::remember(const qorx::Deletion& record, std::int64_t deletedMs) {
    if (record.global_id() == 0) {
        return;
    }
    const std::int64_t known = _context.deleted.deletedMs(_kind, record.global_id());
    if (known == deletedMs) {
        return;
    }
    const bool isOlder = deletedMs < known;
    _context.origin.aboutToChange();
    if (isOlder) {
        _context.origin.noteNewsForPeer();
    }
    _context.deleted.tell(
        {_kind, record.global_id(), isOlder ? known : deletedMs, record.media_type()},
        isOlder ? std::string_view(OwnerOrigin) : _context.origin.uid(), _context.newIDs);
}

void PeerRemovals::dropUnnamed(std::span<const std::int64_t> named) {
    std::vector<std::int64_t> foreign;
    for (const std::int64_t pid : _context.identities.dropClaims(_kind, named)) {
        if (_context.database.int64(statementsFor(_kind).isForeign, pid,
                                    sourceBit(KV3SourceSync)) != 0) {
            foreign.push_back(pid);
        }
    }
    if (foreign.empty()) {
        return;
    }
    _context.origin.aboutToChange();
    if (_kind == EntityKind::Track) {
        _context.namesMayBeUnused = true;
        removeTrackSources(_context.database, sourceBit(KV3SourceSync), foreign);
    } else {
        removePlaylistSources(_context.database, sourceBit(KV3SourceSync), foreign);
    }
}

void PeerRemovals::tellUnnamed() {
    const NamedEntries& named =
        _kind == EntityKind::Track ? _context.namedTracks : _context.namedPlaylists;
    std::vector<std::int64_t> unnamed;
    common::Query rows = _context.database.query(statementsFor(_kind).all);
    while (rows.step()) {
        if (!named.contains(rows->int64(0))) {
            unnamed.push_back(rows->int64(1));
        }
    }
    for (const std::int64_t pid : unnamed) {
        _context.origin.tellEverybody(_kind, pid);
    }
}

}  // namespace korvane
