#include "device/korvane/import/playlist_import.h"

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/import_context.h"

namespace korvane {

namespace {

ContainerKind kindOf(const qorx::Playlist& record) {
    return record.kind() == qorx::Playlist::SMART ? ContainerKind::Smart : ContainerKind::Plain;
}

// Null for a plain playlist.
platform::Value rulesOf(const qorx::Playlist& record) {
    if (kindOf(record) == ContainerKind::Plain) {
        return {};
    }
    const std::string& rules = record.smart_rules();
    return platform::Data(rules.begin(), rules.end());
}

}  // namespace

PlaylistImport::PlaylistImport(ImportContext& context)
    : _context(context),
      _playlists(context.database, EntityKind::Playlist, context.peerID, &context.namedPlaylists),
      _tracks(context.database, EntityKind::Track, context.peerID, nullptr),
      _deleted(context.database) {}

void PlaylistImport::apply(const qorx::Playlist& record) {
    if (_context.unreported.isDeleted(EntityKind::Playlist, record.sync_id(), record.global_id())) {
        return;
    }
    const auto found = find(record);
    const std::int64_t containerID = found ? found->rowID : insert(record);
    _context.namedPlaylists.add(containerID);
    // What the owner changed since the last save goes to the host first.
    if (found && _context.unreported.isChanged(EntityKind::Playlist, found->pid)) {
        claim(containerID, record.sync_id());
        return;
    }
    if (found) {
        update(*found, record);
    }
    if (kindOf(record) != ContainerKind::Plain) {
        return;
    }
    std::vector<PlaylistEntry> entries = resolve(record);
    if (found) {
        entries = withEntriesOfOthers(_context.database, containerID, _context.sourceBit,
                                      std::move(entries));
    }
    if (writePlaylistEntries(_context.database, containerID, entries,
                             [&] { _context.origin.aboutToChange(); }) &&
        found) {
        setItemsChanged(containerID, record);
    }
}

void PlaylistImport::setItemsChanged(std::int64_t containerID, const qorx::Playlist& record) {
    const std::int64_t held = _context.database.int64(
        "SELECT items_changed_ms FROM container WHERE container_id = ?", containerID);
    _context.database.execute("UPDATE container SET items_changed_ms = ? WHERE container_id = ?",
                              changedMs(record, held), containerID);
}

// One that stands for a built-in playlist takes the place of what stood for it before; the ones
// that the library made itself are not touched: the session removes them.
std::optional<FoundEntry> PlaylistImport::find(const qorx::Playlist& record) {
    if (auto found = _playlists.find(RecordIDs::of(record))) {
        return found;
    }
    if (record.built_in_kind() == 0) {
        return std::nullopt;
    }
    common::Query row = _context.database.query(
        "SELECT container_id, container_pid FROM container"
        " WHERE built_in_kind = ? AND auto_created = 0",
        record.built_in_kind());
    while (row.step()) {
        if (!_context.namedPlaylists.contains(row->int64(0))) {
            return FoundEntry{row->int64(0), row->int64(1)};
        }
    }
    return std::nullopt;
}

std::int64_t PlaylistImport::insert(const qorx::Playlist& record) {
    _context.origin.aboutToChange();
    const std::int64_t changed =
        record.changed_ms() > 0 ? boundedMs(record.changed_ms()) : _context.nowMs;
    _context.database.execute(
        "INSERT INTO container (container_pid, name, kind, smart_rules, built_in_kind, sync_id,"
        " global_id, sources, added_ms, name_changed_ms, items_changed_ms)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?10, ?10)",
        _context.newIDs.next(), record.name(), static_cast<int>(kindOf(record)), rulesOf(record),
        record.built_in_kind(), record.sync_id(), record.global_id(), _context.sourceBit,
        _deleted.birthMs(EntityKind::Playlist, record.global_id(), _context.nowMs), changed);
    return _context.database.lastInsertedRow();
}

std::int64_t PlaylistImport::changedMs(const qorx::Playlist& record, std::int64_t heldMs) const {
    return record.changed_ms() > heldMs ? boundedMs(record.changed_ms())
                                        : changeMs(_context.nowMs, heldMs);
}

void PlaylistImport::update(const FoundEntry& found, const qorx::Playlist& record) {
    const platform::Value rules = rulesOf(record);
    common::Query row = _context.database.query(
        "SELECT name <> ?2, kind <> ?3 OR smart_rules IS NOT ?4 OR built_in_kind <> ?5,"
        " sync_id <> ?6 OR (global_id <> ?7 AND ?7 <> 0) OR (sources | ?8) <> sources"
        "  OR auto_created <> 0, name_changed_ms, items_changed_ms"
        " FROM container WHERE container_id = ?1",
        found.rowID, record.name(), static_cast<int>(kindOf(record)), rules, record.built_in_kind(),
        record.sync_id(), record.global_id(), _context.sourceBit);
    row.step();
    const bool isRenamed = row->int64(0) != 0;
    const bool hasOtherRules = row->int64(1) != 0;
    const bool isClaimedAnew = row->int64(2) != 0;
    const std::int64_t nameMs = row->int64(3);
    const std::int64_t itemsMs = row->int64(4);
    if (!isRenamed && !hasOtherRules && !isClaimedAnew) {
        return;
    }
    _context.origin.aboutToChange();
    _context.database.execute(
        "UPDATE container SET name = ?2, kind = ?3, smart_rules = ?4, built_in_kind = ?5,"
        " sync_id = ?6, global_id = iif(?7 <> 0, ?7, global_id), sources = sources | ?8,"
        " auto_created = 0, name_changed_ms = ?9, items_changed_ms = ?10 WHERE container_id = ?1",
        found.rowID, record.name(), static_cast<int>(kindOf(record)), rules, record.built_in_kind(),
        record.sync_id(), record.global_id(), _context.sourceBit,
        isRenamed ? changedMs(record, nameMs) : nameMs,
        hasOtherRules ? changedMs(record, itemsMs) : itemsMs);
}

void PlaylistImport::claim(std::int64_t containerID, std::int64_t syncID) {
    const bool isClaimed = _context.database.int64(
        "SELECT EXISTS (SELECT 1 FROM container WHERE container_id = ?1 AND sync_id = ?2"
        " AND (sources | ?3) = sources)",
        containerID, syncID, _context.sourceBit);
    if (!isClaimed) {
        _context.origin.aboutToChange();
        _context.database.execute(
            "UPDATE container SET sync_id = ?2, sources = sources | ?3 WHERE container_id = ?1",
            containerID, syncID, _context.sourceBit);
    }
}

std::vector<PlaylistEntry> PlaylistImport::resolve(const qorx::Playlist& record) {
    std::vector<PlaylistEntry> entries;
    entries.reserve(static_cast<std::size_t>(record.items_size()));
    for (const qorx::Playlist::Item& item : record.items()) {
        if (const auto track = _tracks.find(RecordIDs::of(item))) {
            entries.push_back({track->pid, 0, 0, 0});
        } else if (item.persistent_id() != 0 || item.sync_id() != 0 || item.global_id() != 0) {
            entries.push_back({0, item.persistent_id(), item.sync_id(), item.global_id()});
        }
    }
    return entries;
}

}  // namespace korvane
