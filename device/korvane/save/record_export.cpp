#include "device/korvane/save/record_export.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <limits>
#include <string>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/schema.h"

namespace korvane {

using common::Statement;

namespace {

struct ExportColumn {
    const char* expression;
    // Not called for null.
    void (*read)(const Statement&, int column, qorx::Track&);
};

// Records hold UTF-8 only: whatever else a column holds becomes the replacement character.
std::string text(const Statement& row, int column) {
    const std::string_view raw = row.text(column);
    std::string safe;
    safe.reserve(raw.size());
    for (std::size_t at = 0; at < raw.size();) {
        utf8proc_int32_t codepoint = 0;
        const auto length =
            utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(raw.data() + at),
                             static_cast<utf8proc_ssize_t>(raw.size() - at), &codepoint);
        safe += length > 0 ? raw.substr(at, static_cast<std::size_t>(length)) : "\uFFFD";
        at += length > 0 ? static_cast<std::size_t>(length) : 1;
    }
    return safe;
}
std::string bytes(const Statement& row, int column) {
    const auto blob = row.blob(column);
    return {blob.begin(), blob.end()};
}
// Fields of 32 bits never get a larger or negative value but by other statements.
std::uint32_t small(const Statement& row, int column) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(row.int64(column), 0, std::numeric_limits<std::uint32_t>::max()));
}
std::uint64_t large(const Statement& row, int column) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(row.int64(column), 0));
}

using Row = const Statement&;
using To = qorx::Track&;

constexpr ExportColumn Columns[] = {
    {"i.item_pid", [](Row r, int c, To t) { t.set_persistent_id(r.int64(c)); }},
    {"s.sync_id", [](Row r, int c, To t) { t.set_sync_id(r.int64(c)); }},
    {"e.global_id", [](Row r, int c, To t) { t.set_global_id(r.int64(c)); }},
    {"i.media_type", [](Row r, int c, To t) { t.set_media_type(small(r, c)); }},
    {"e.title", [](Row r, int c, To t) { t.set_title(text(r, c)); }},
    {"ar.name", [](Row r, int c, To t) { t.set_artist(text(r, c)); }},
    {"al.name", [](Row r, int c, To t) { t.set_album(text(r, c)); }},
    {"aa.name", [](Row r, int c, To t) { t.set_album_artist(text(r, c)); }},
    {"e.composer", [](Row r, int c, To t) { t.set_composer(text(r, c)); }},
    {"e.genre", [](Row r, int c, To t) { t.set_genre(text(r, c)); }},
    {"e.comment", [](Row r, int c, To t) { t.set_comment(text(r, c)); }},
    {"e.grouping", [](Row r, int c, To t) { t.set_grouping(text(r, c)); }},
    {"e.sort_title", [](Row r, int c, To t) { t.set_sort_title(text(r, c)); }},
    {"e.sort_artist", [](Row r, int c, To t) { t.set_sort_artist(text(r, c)); }},
    {"e.sort_album", [](Row r, int c, To t) { t.set_sort_album(text(r, c)); }},
    {"e.sort_album_artist", [](Row r, int c, To t) { t.set_sort_album_artist(text(r, c)); }},
    {"e.year", [](Row r, int c, To t) { t.set_year(small(r, c)); }},
    {"i.disc_number", [](Row r, int c, To t) { t.set_disc_number(small(r, c)); }},
    {"e.disc_count", [](Row r, int c, To t) { t.set_disc_count(small(r, c)); }},
    {"i.track_number", [](Row r, int c, To t) { t.set_track_number(small(r, c)); }},
    {"e.track_count", [](Row r, int c, To t) { t.set_track_count(small(r, c)); }},
    {"e.compilation", [](Row r, int c, To t) { t.set_compilation(r.int64(c) != 0); }},
    {"e.total_time_ms", [](Row r, int c, To t) { t.set_total_time_ms(large(r, c)); }},
    {"e.total_size", [](Row r, int c, To t) { t.set_total_size(large(r, c)); }},
    {"e.bit_rate", [](Row r, int c, To t) { t.set_bit_rate(small(r, c)); }},
    {"e.sample_rate", [](Row r, int c, To t) { t.set_sample_rate(small(r, c)); }},
    {"e.bpm", [](Row r, int c, To t) { t.set_bpm(small(r, c)); }},
    {"e.file_extension", [](Row r, int c, To t) { t.set_file_extension(text(r, c)); }},
    {"e.content_hash", [](Row r, int c, To t) { t.set_content_hash(bytes(r, c)); }},
    {"e.host_path", [](Row r, int c, To t) { t.set_host_path(bytes(r, c)); }},
    {"i.date_added", [](Row r, int c, To t) { t.set_date_added(r.int64(c)); }},
    {"e.release_date", [](Row r, int c, To t) { t.set_release_date(r.int64(c)); }},
    {"i.is_rental", [](Row r, int c, To t) { t.set_is_rental(r.int64(c) != 0); }},
    {"e.show", [](Row r, int c, To t) { t.set_show(text(r, c)); }},
    {"e.season_number", [](Row r, int c, To t) { t.set_season_number(small(r, c)); }},
    {"e.episode_number", [](Row r, int c, To t) { t.set_episode_number(small(r, c)); }},
    {"e.episode_id", [](Row r, int c, To t) { t.set_episode_id(text(r, c)); }},
    {"e.description", [](Row r, int c, To t) { t.set_description(text(r, c)); }},
    {"nullif(w.sync_artwork_token, '')",
     [](Row r, int c, To t) { t.set_artwork_token(text(r, c)); }},
    {"e.chapter_data", [](Row r, int c, To t) { t.set_chapter_data(bytes(r, c)); }},
    {"e.kenning_id", [](Row r, int c, To t) { t.set_kenning_id(r.int64(c)); }},
    {"e.pending_kenning_checksum", [](Row r, int c, To t) { t.set_kenning_checksum(r.int64(c)); }},
    {"s.account_id", [](Row r, int c, To t) { t.mutable_store()->set_account_id(r.int64(c)); }},
    {"s.store_item_id", [](Row r, int c, To t) { t.mutable_store()->set_item_id(r.int64(c)); }},
    {"s.flavor", [](Row r, int c, To t) { t.mutable_store()->set_flavor(text(r, c)); }},
    {"s.matched_status",
     [](Row r, int c, To t) { t.mutable_store()->set_matched_status(r.int64(c)); }},
    {"s.redownloaded_status",
     [](Row r, int c, To t) { t.mutable_store()->set_redownloaded_status(r.int64(c)); }},
    {"s.veska_id", [](Row r, int c, To t) { t.mutable_store()->set_veska_id(r.int64(c)); }},
    {"s.podcast_guid", [](Row r, int c, To t) { t.mutable_store()->set_podcast_guid(text(r, c)); }},
    {"iif(st.rating_changed_ms <> 0 OR st.user_rating <> 0, st.user_rating, NULL)",
     [](Row r, int c, To t) { t.mutable_rating()->set_value(small(r, c)); }},
    {"nullif(st.rating_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_rating()->set_changed_ms(r.int64(c)); }},
    {"iif(st.bookmark_changed_ms <> 0 OR st.bookmark_ms <> 0, st.bookmark_ms, NULL)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_position_ms(large(r, c)); }},
    {"nullif(st.bookmark_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_changed_ms(r.int64(c)); }},
};

std::string trackStatement() {
    std::string columns;
    for (const ExportColumn& column : Columns) {
        columns += fmt::format("{}{}", columns.empty() ? "" : ", ", column.expression);
    }
    return fmt::format(
        "SELECT {} FROM item i JOIN item_extra e ON e.item_id = i.item_id"
        " JOIN item_store s ON s.item_id = i.item_id JOIN item_stats st ON st.item_id = i.item_id"
        " JOIN item_artwork w ON w.item_id = i.item_id"
        " LEFT JOIN album al ON al.album_pid = i.album_pid"
        " LEFT JOIN album_artist aa ON aa.album_artist_pid = i.album_artist_pid"
        " LEFT JOIN item_artist ar ON ar.item_artist_pid = i.item_artist_pid"
        " WHERE i.item_pid = ?",
        columns);
}

constexpr char Plays[] =
    "SELECT origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms"
    " FROM play_statistics WHERE item_pid = ? ORDER BY origin_uid";
constexpr char PlaylistRow[] =
    "SELECT container_id, container_pid, sync_id, global_id, name, kind, smart_rules,"
    " built_in_kind, changed_ms FROM container WHERE container_pid = ?";
// An entry that is not resolved goes out with the ids that it came with.
constexpr char Items[] =
    "SELECT iif(c.item_pid <> 0, c.item_pid, c.foreign_pid),"
    " iif(c.item_pid <> 0, s.sync_id, c.foreign_sync_id),"
    " iif(c.item_pid <> 0, e.global_id, c.foreign_global_id)"
    " FROM container_item c LEFT JOIN item i ON i.item_pid = c.item_pid AND c.item_pid <> 0"
    " LEFT JOIN item_store s ON s.item_id = i.item_id"
    " LEFT JOIN item_extra e ON e.item_id = i.item_id"
    " WHERE c.container_id = ? ORDER BY c.position";

}  // namespace

RecordExport::RecordExport(common::Database& database)
    : _track(database.prepare(trackStatement())),
      _plays(database.prepare(Plays)),
      _playlist(database.prepare(PlaylistRow)),
      _items(database.prepare(Items)) {}

bool RecordExport::track(std::int64_t pid, qorx::Track& record) {
    record.Clear();
    _track->bindAll(pid);
    const bool isThere = _track.step();
    if (isThere) {
        int index = 0;
        for (const ExportColumn& column : Columns) {
            if (!_track->isNull(index)) {
                column.read(*_track, index, record);
            }
            ++index;
        }
        plays(pid, record);
    }
    _track->reset();
    return isThere;
}

void RecordExport::plays(std::int64_t pid, qorx::Track& record) {
    _plays->bindAll(pid);
    while (_plays.step()) {
        qorx::PlayStatistics& plays = *record.add_plays();
        plays.set_origin_uid(text(*_plays, 0));
        plays.set_play_count(large(*_plays, 1));
        plays.set_skip_count(large(*_plays, 2));
        plays.set_last_played_ms(_plays->int64(3));
        plays.set_last_skipped_ms(_plays->int64(4));
    }
    _plays->reset();
}

bool RecordExport::playlist(std::int64_t pid, qorx::Playlist& record) {
    record.Clear();
    _playlist->bindAll(pid);
    const bool isThere = _playlist.step();
    if (isThere) {
        record.set_persistent_id(_playlist->int64(1));
        record.set_sync_id(_playlist->int64(2));
        record.set_global_id(_playlist->int64(3));
        record.set_name(text(*_playlist, 4));
        record.set_built_in_kind(small(*_playlist, 7));
        record.set_changed_ms(_playlist->int64(8));
        if (_playlist->int64(5) == static_cast<int>(ContainerKind::Smart)) {
            record.set_kind(qorx::Playlist::SMART);
            record.set_smart_rules(bytes(*_playlist, 6));
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

}  // namespace korvane
