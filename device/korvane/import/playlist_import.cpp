#include "device/korvane/import/playlist_import.h"

#include <algorithm>

#include "common/qorx/qorx.pb.h"
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
      _tracks(context.database, EntityKind::Track, context.peerID, nullptr) {}

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
    if (kindOf(record) == ContainerKind::Plain) {
        writeEntries(containerID, resolve(record));
    }
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
    _context.database.execute(
        "INSERT INTO container (container_pid, name, kind, smart_rules, built_in_kind, sync_id,"
        " global_id, sources, changed_ms) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
        _context.newIDs.next(), record.name(), static_cast<int>(kindOf(record)), rulesOf(record),
        record.built_in_kind(), record.sync_id(), record.global_id(), _context.sourceBit,
        record.changed_ms());
    return _context.database.lastInsertedRow();
}

void PlaylistImport::update(const FoundEntry& found, const qorx::Playlist& record) {
    // The triggers see only what really changes; the condition keeps an equal row unwritten.
    constexpr char Differs[] =
        "SELECT EXISTS (SELECT 1 FROM container WHERE container_id = ?1 AND (name <> ?2"
        " OR kind <> ?3 OR smart_rules IS NOT ?4 OR built_in_kind <> ?5 OR sync_id <> ?6"
        " OR (global_id <> ?7 AND ?7 <> 0) OR (sources | ?8) <> sources OR changed_ms <> ?9"
        " OR auto_created <> 0))";
    constexpr char Write[] =
        "UPDATE container SET name = ?2, kind = ?3, smart_rules = ?4, built_in_kind = ?5,"
        " sync_id = ?6, global_id = iif(?7 <> 0, ?7, global_id), sources = sources | ?8,"
        " changed_ms = ?9, auto_created = 0 WHERE container_id = ?1";
    const platform::Value rules = rulesOf(record);
    const auto run = [&](auto&& use) {
        return use(found.rowID, record.name(), static_cast<int>(kindOf(record)), rules,
                   record.built_in_kind(), record.sync_id(), record.global_id(), _context.sourceBit,
                   record.changed_ms());
    };
    const auto differs = [&](const auto&... values) {
        return _context.database.int64(Differs, values...);
    };
    if (run(differs) == 0) {
        return;
    }
    _context.origin.aboutToChange();
    run([&](const auto&... values) { return _context.database.execute(Write, values...); });
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

std::vector<PlaylistImport::Entry> PlaylistImport::resolve(const qorx::Playlist& record) {
    std::vector<Entry> entries;
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

std::vector<PlaylistImport::Entry> PlaylistImport::held(std::int64_t containerID) {
    std::vector<Entry> entries;
    common::Query rows = _context.database.query(
        "SELECT item_pid, foreign_pid, foreign_sync_id, foreign_global_id FROM container_item"
        " WHERE container_id = ? ORDER BY position",
        containerID);
    while (rows.step()) {
        entries.push_back({rows->int64(0), rows->int64(1), rows->int64(2), rows->int64(3)});
    }
    return entries;
}

// Leaves the entries before the first difference alone.
void PlaylistImport::writeEntries(std::int64_t containerID, const std::vector<Entry>& entries) {
    const std::vector<Entry> old = held(containerID);
    const auto [firstOld, firstNew] = std::ranges::mismatch(old, entries);
    if (firstOld == old.end() && firstNew == entries.end()) {
        return;
    }
    _context.origin.aboutToChange();
    const std::int64_t kept = firstOld - old.begin();
    std::int64_t position = _context.database.int64(
        "SELECT ifnull(max(position), -1) + 1 FROM (SELECT position FROM container_item"
        " WHERE container_id = ? ORDER BY position LIMIT ?)",
        containerID, kept);
    _context.database.execute("DELETE FROM container_item WHERE container_id = ? AND position >= ?",
                              containerID, position);
    common::Query insert = _context.database.prepare(
        "INSERT INTO container_item (container_id, position, item_pid, foreign_pid,"
        " foreign_sync_id, foreign_global_id) VALUES (?, ?, ?, ?, ?, ?)");
    for (auto entry = firstNew; entry != entries.end(); ++entry) {
        insert->bindAll(containerID, position++, entry->itemPID, entry->foreignPID,
                        entry->foreignSyncID, entry->foreignGlobalID);
        insert.run();
    }
}

}  // namespace korvane
