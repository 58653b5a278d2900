#include "device/korvane/import/peer_playlist_import.h"

#include <algorithm>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/peer_import_context.h"
#include "platform/media_library.h"

namespace korvane {

namespace {

ContainerKind kindOf(const qorx::Playlist& record) {
    return record.kind() == qorx::Playlist::SMART ? ContainerKind::Smart : ContainerKind::Plain;
}

constexpr auto Plain = static_cast<std::int64_t>(ContainerKind::Plain);

// Null for a plain playlist.
platform::Value rulesValue(std::int64_t kind, const std::string& rules) {
    return kind == Plain ? platform::Value() : platform::Data(rules.begin(), rules.end());
}

}  // namespace

PeerPlaylistImport::PeerPlaylistImport(PeerImportContext& context)
    : _context(context),
      _playlists(context.database, EntityKind::Playlist, context.peerID, &context.namedPlaylists),
      _tracks(context.database, EntityKind::Track, context.peerID, nullptr),
      _globalID(context.database.prepare("SELECT global_id FROM item_extra WHERE item_pid = ?")) {}

void PeerPlaylistImport::apply(const qorx::Playlist& record) {
    const auto known = _playlists.findPeers(_context.idsOf(record));
    if (!known && isDeletedHere(record)) {
        return;
    }
    const std::vector<PlaylistEntry> entries = resolve(record);
    const State sent = stateOf(record, entries);
    const FoundEntry found = known ? *known : insert(record, sent);
    _context.namedPlaylists.add(found.rowID);
    if (known) {
        merge(found, sent, entries);
    } else if (sent.items.kind == Plain) {
        writeEntries(found.rowID, entries);
    }
    _context.identities.claim(EntityKind::Playlist, record.persistent_id(), found.pid);
}

// As of a track.
bool PeerPlaylistImport::isDeletedHere(const qorx::Playlist& record) {
    const std::int64_t deletedMs =
        _context.deleted.deletedMs(EntityKind::Playlist, record.global_id());
    if (deletedMs == 0 || boundedMs(record.added_ms()) > deletedMs) {
        return false;
    }
    _context.origin.aboutToChange();
    _context.origin.noteNewsForPeer();
    _context.deleted.tell({EntityKind::Playlist, record.global_id(), deletedMs, 0}, OwnerOrigin,
                          _context.newIDs);
    return true;
}

// An entry that no id names means nothing.
std::vector<PlaylistEntry> PeerPlaylistImport::resolve(const qorx::Playlist& record) {
    std::vector<PlaylistEntry> entries;
    if (kindOf(record) != ContainerKind::Plain) {
        return entries;
    }
    entries.reserve(static_cast<std::size_t>(record.items_size()));
    for (const qorx::Playlist::Item& item : record.items()) {
        if (const auto track = _tracks.findPeers(_context.idsOf(item))) {
            entries.push_back({track->pid, 0, 0, 0});
        } else if (item.persistent_id() != 0 || item.global_id() != 0) {
            entries.push_back({0, item.persistent_id(), item.sync_id(), item.global_id()});
        }
    }
    return entries;
}

std::uint64_t PeerPlaylistImport::globalIDOf(const PlaylistEntry& entry) {
    if (entry.itemPID == 0) {
        return static_cast<std::uint64_t>(entry.foreignGlobalID);
    }
    _globalID->bindAll(entry.itemPID);
    const std::int64_t globalID = _globalID.step() ? _globalID->int64(0) : 0;
    _globalID->reset();
    return static_cast<std::uint64_t>(globalID);
}

PeerPlaylistImport::State PeerPlaylistImport::stateOf(const qorx::Playlist& record,
                                                      const std::vector<PlaylistEntry>& entries) {
    State state;
    state.name = {boundedMs(record.name_changed_ms()), record.name()};
    state.items.changedMs = boundedMs(record.items_changed_ms());
    state.items.kind = static_cast<std::int64_t>(kindOf(record));
    state.items.builtInKind = record.built_in_kind();
    state.items.rules = state.items.kind == Plain ? std::string() : record.smart_rules();
    for (const PlaylistEntry& entry : entries) {
        state.items.tracks.push_back(globalIDOf(entry));
    }
    state.addedMs = boundedMs(record.added_ms());
    state.globalID = static_cast<std::uint64_t>(record.global_id());
    return state;
}

PeerPlaylistImport::State PeerPlaylistImport::held(std::int64_t containerID) {
    State state;
    {
        common::Query row = _context.database.query(
            "SELECT name_changed_ms, name, items_changed_ms, kind, built_in_kind, smart_rules,"
            " added_ms, global_id FROM container WHERE container_id = ?",
            containerID);
        row.step();
        const auto rules = row->blob(5);
        state.name = {row->int64(0), std::string(row->text(1))};
        state.items = {row->int64(2),
                       row->int64(3),
                       row->int64(4),
                       std::string(rules.begin(), rules.end()),
                       {}};
        state.addedMs = row->int64(6);
        state.globalID = static_cast<std::uint64_t>(row->int64(7));
    }
    if (state.items.kind == Plain) {
        state.items.rules.clear();
        for (const PlaylistEntry& entry : playlistEntries(_context.database, containerID)) {
            state.items.tracks.push_back(globalIDOf(entry));
        }
    }
    return state;
}

FoundEntry PeerPlaylistImport::insert(const qorx::Playlist& record, const State& state) {
    _context.origin.aboutToChange();
    const std::int64_t pid = _context.newIDs.next();
    _context.database.execute(
        "INSERT INTO container (container_pid, name, kind, smart_rules, built_in_kind, global_id,"
        " sources, added_ms, name_changed_ms, items_changed_ms)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        pid, state.name.text, state.items.kind, rulesValue(state.items.kind, state.items.rules),
        state.items.builtInKind, record.global_id(), sourceBit(KV3SourceSync), state.addedMs,
        state.name.changedMs, state.items.changedMs);
    ++_context.newPlaylists;
    return {_context.database.lastInsertedRow(), pid};
}

void PeerPlaylistImport::merge(const FoundEntry& found, const State& sent,
                               const std::vector<PlaylistEntry>& entries) {
    const State ours = held(found.rowID);
    const State merged{std::max(ours.name, sent.name), std::max(ours.items, sent.items),
                       std::max(ours.addedMs, sent.addedMs),
                       std::max(ours.globalID, sent.globalID)};
    if (merged != ours) {
        write(found, merged);
        if (merged.items.tracks != ours.items.tracks) {
            writeEntries(found.rowID, entries);
        }
    }
    if (merged != sent) {
        _context.origin.tellEverybody(EntityKind::Playlist, found.pid);
    }
}

void PeerPlaylistImport::write(const FoundEntry& found, const State& state) {
    _context.origin.aboutToChange();
    _context.database.execute(
        "UPDATE container SET name = ?2, kind = ?3, smart_rules = ?4, built_in_kind = ?5,"
        " global_id = ?6, added_ms = ?7, name_changed_ms = ?8, items_changed_ms = ?9"
        " WHERE container_id = ?1",
        found.rowID, state.name.text, state.items.kind,
        rulesValue(state.items.kind, state.items.rules), state.items.builtInKind,
        static_cast<std::int64_t>(state.globalID), state.addedMs, state.name.changedMs,
        state.items.changedMs);
}

void PeerPlaylistImport::writeEntries(std::int64_t containerID,
                                      const std::vector<PlaylistEntry>& entries) {
    writePlaylistEntries(_context.database, containerID, entries,
                         [&] { _context.origin.aboutToChange(); });
}

}  // namespace korvane
