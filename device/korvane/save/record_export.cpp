#include "device/korvane/save/record_export.h"

#include <fmt/format.h>

#include "common/qorx/format.h"
#include "common/qorx/qorx.pb.h"
#include "device/korvane/library.h"
#include "device/korvane/save/column_values.h"

namespace korvane {

namespace {

constexpr char Plays[] =
    "SELECT origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms"
    " FROM play_statistics WHERE item_pid = ? ORDER BY origin_uid";
constexpr char FieldChanges[] =
    "SELECT field, changed_ms FROM field_change WHERE item_pid = ? ORDER BY field";
constexpr char PlaylistRow[] =
    "SELECT container_id, container_pid, sync_id, global_id, name, kind, smart_rules,"
    " built_in_kind, changed_ms, name_changed_ms, items_changed_ms, added_ms"
    " FROM container WHERE container_pid = ?";
// An entry that is not resolved goes out with the ids that it came with.
constexpr char Items[] =
    "SELECT iif(c.item_pid <> 0, c.item_pid, c.foreign_pid),"
    " iif(c.item_pid <> 0, s.sync_id, c.foreign_sync_id),"
    " iif(c.item_pid <> 0, e.global_id, c.foreign_global_id)"
    " FROM container_item c LEFT JOIN item i ON i.item_pid = c.item_pid AND c.item_pid <> 0"
    " LEFT JOIN item_store s ON s.item_id = i.item_id"
    " LEFT JOIN item_extra e ON e.item_id = i.item_id"
    " WHERE c.container_id = ? ORDER BY c.position";
constexpr char DeletionRow[] =
    "SELECT sync_id, global_id, media_type, deleted_ms FROM entity_revision"
    " WHERE entity_kind = ? AND pid = ? AND deleted <> 0";

}  // namespace

RecordExport::RecordExport(common::Database& database)
    : _kept(database),
      _tracks(database),
      _plays(database.prepare(Plays)),
      _hasFieldChanges(database.int64("SELECT EXISTS (SELECT 1 FROM field_change)") != 0),
      _fieldChanges(database.prepare(FieldChanges)),
      _playlist(database.prepare(PlaylistRow)),
      _items(database.prepare(Items)),
      _deletion(database.prepare(DeletionRow)) {}

bool RecordExport::track(std::int64_t pid, qorx::Track& record) {
    record.Clear();
    if (_tracks.readOnTo(pid)) {
        fill(pid, record);
        return true;
    }
    return _kept.find(pid, record) || trackOfRows(pid, record);
}

bool RecordExport::trackOfRows(std::int64_t pid, qorx::Track& record) {
    record.Clear();
    if (!_tracks.lookUp(pid))
        return false;
    fill(pid, record);
    return true;
}

void RecordExport::fill(std::int64_t pid, qorx::Track& record) {
    _tracks.fill(record);
    if (_tracks.wasPlayedOrSkipped())
        plays(pid, record);
    if (_hasFieldChanges)
        fieldChanges(pid, record);
}

void RecordExport::plays(std::int64_t pid, qorx::Track& record) {
    _plays->bindAll(pid);
    while (_plays.step()) {
        qorx::PlayStatistics& plays = *record.add_plays();
        setText(*_plays, 0, *plays.mutable_origin_uid());
        plays.set_play_count(large(*_plays, 1));
        plays.set_skip_count(large(*_plays, 2));
        plays.set_last_played_ms(_plays->int64(3));
        plays.set_last_skipped_ms(_plays->int64(4));
    }
    _plays->reset();
}

void RecordExport::fieldChanges(std::int64_t pid, qorx::Track& record) {
    _fieldChanges->bindAll(pid);
    while (_fieldChanges.step()) {
        qorx::FieldChange& change = *record.add_field_changes();
        change.set_field(small(*_fieldChanges, 0));
        change.set_changed_ms(_fieldChanges->int64(1));
    }
    _fieldChanges->reset();
}

bool RecordExport::playlist(std::int64_t pid, qorx::Playlist& record) {
    record.Clear();
    _playlist->bindAll(pid);
    const bool isThere = _playlist.step();
    if (isThere) {
        record.set_persistent_id(_playlist->int64(1));
        record.set_sync_id(_playlist->int64(2));
        record.set_global_id(_playlist->int64(3));
        setText(*_playlist, 4, *record.mutable_name());
        record.set_built_in_kind(small(*_playlist, 7));
        record.set_changed_ms(_playlist->int64(8));
        record.set_name_changed_ms(_playlist->int64(9));
        record.set_items_changed_ms(_playlist->int64(10));
        record.set_added_ms(_playlist->int64(11));
        if (_playlist->int64(5) == static_cast<int>(ContainerKind::Smart)) {
            record.set_kind(qorx::Playlist::SMART);
            setBytes(*_playlist, 6, *record.mutable_smart_rules());
        } else {
            items(_playlist->int64(0), record);
        }
    }
    _playlist->reset();
    return isThere;
}

void RecordExport::items(std::int64_t containerID, qorx::Playlist& record) {
    _items->bindAll(containerID);
    while (_items.step()) {
        qorx::Playlist::Item& item = *record.add_items();
        item.set_persistent_id(_items->int64(0));
        item.set_sync_id(_items->int64(1));
        item.set_global_id(_items->int64(2));
    }
    _items->reset();
}

bool RecordExport::deletion(EntityKind kind, std::int64_t pid, qorx::Deletion& record) {
    record.Clear();
    _deletion->bindAll(static_cast<int>(kind), pid);
    const bool isThere = _deletion.step();
    if (isThere) {
        record.set_entity(kind == EntityKind::Playlist ? qorx::Deletion::PLAYLIST
                                                       : qorx::Deletion::TRACK);
        record.set_persistent_id(pid);
        record.set_sync_id(_deletion->int64(0));
        record.set_global_id(_deletion->int64(1));
        record.set_media_type(small(*_deletion, 2));
        record.set_deleted_ms(_deletion->int64(3));
    }
    _deletion->reset();
    return isThere;
}

platform::OptionalError leaveOutIfTooLarge(const platform::OptionalError& written,
                                           const Library& library, std::string_view kind,
                                           std::int64_t pid) {
    if (!written || written->domain != common::QorxErrorDomain ||
        written->code != common::QorxErrorTooLarge)
        return written;
    library.log().warning("export",
                          fmt::format("{} {} is left out: {}", kind, pid, written->text()));
    return std::nullopt;
}

}  // namespace korvane
