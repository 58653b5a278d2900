#include "device/korvane/save/track_rows.h"

#include <fmt/format.h>

#include <iterator>
#include <string>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/save/column_values.h"

namespace korvane {

using common::Statement;

namespace {

struct ExportColumn {
    const char* expression;
    // Not called for null.
    void (*read)(const Statement&, int column, qorx::Track&);
};

using Row = const Statement&;
using To = qorx::Track&;

constexpr ExportColumn Columns[] = {
    {"i.item_pid", [](Row r, int c, To t) { t.set_persistent_id(r.int64(c)); }},
    {"s.sync_id", [](Row r, int c, To t) { t.set_sync_id(r.int64(c)); }},
    {"e.global_id", [](Row r, int c, To t) { t.set_global_id(r.int64(c)); }},
    {"i.media_type", [](Row r, int c, To t) { t.set_media_type(small(r, c)); }},
    {"e.title", [](Row r, int c, To t) { setText(r, c, *t.mutable_title()); }},
    {"ar.name", [](Row r, int c, To t) { setText(r, c, *t.mutable_artist()); }},
    {"al.name", [](Row r, int c, To t) { setText(r, c, *t.mutable_album()); }},
    {"aa.name", [](Row r, int c, To t) { setText(r, c, *t.mutable_album_artist()); }},
    {"e.composer", [](Row r, int c, To t) { setText(r, c, *t.mutable_composer()); }},
    {"e.genre", [](Row r, int c, To t) { setText(r, c, *t.mutable_genre()); }},
    {"e.comment", [](Row r, int c, To t) { setText(r, c, *t.mutable_comment()); }},
    {"e.grouping", [](Row r, int c, To t) { setText(r, c, *t.mutable_grouping()); }},
    {"e.sort_title", [](Row r, int c, To t) { setText(r, c, *t.mutable_sort_title()); }},
    {"e.sort_artist", [](Row r, int c, To t) { setText(r, c, *t.mutable_sort_artist()); }},
    {"e.sort_album", [](Row r, int c, To t) { setText(r, c, *t.mutable_sort_album()); }},
    {"e.sort_album_artist",
     [](Row r, int c, To t) { setText(r, c, *t.mutable_sort_album_artist()); }},
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
    {"e.file_extension", [](Row r, int c, To t) { setText(r, c, *t.mutable_file_extension()); }},
    {"e.content_hash", [](Row r, int c, To t) { setBytes(r, c, *t.mutable_content_hash()); }},
    {"e.host_path", [](Row r, int c, To t) { setBytes(r, c, *t.mutable_host_path()); }},
    {"i.date_added", [](Row r, int c, To t) { t.set_date_added(r.int64(c)); }},
    {"e.release_date", [](Row r, int c, To t) { t.set_release_date(r.int64(c)); }},
    {"i.is_rental", [](Row r, int c, To t) { t.set_is_rental(r.int64(c) != 0); }},
    {"e.show", [](Row r, int c, To t) { setText(r, c, *t.mutable_show()); }},
    {"e.season_number", [](Row r, int c, To t) { t.set_season_number(small(r, c)); }},
    {"e.episode_number", [](Row r, int c, To t) { t.set_episode_number(small(r, c)); }},
    {"e.episode_id", [](Row r, int c, To t) { setText(r, c, *t.mutable_episode_id()); }},
    {"e.description", [](Row r, int c, To t) { setText(r, c, *t.mutable_description()); }},
    {"nullif(iif(w.sync_artwork_token <> '', w.sync_artwork_token, w.cloud_artwork_token), '')",
     [](Row r, int c, To t) { setText(r, c, *t.mutable_artwork_token()); }},
    {"e.chapter_data", [](Row r, int c, To t) { setBytes(r, c, *t.mutable_chapter_data()); }},
    {"e.kenning_id", [](Row r, int c, To t) { t.set_kenning_id(r.int64(c)); }},
    {"e.pending_kenning_checksum", [](Row r, int c, To t) { t.set_kenning_checksum(r.int64(c)); }},
    {"s.account_id", [](Row r, int c, To t) { t.mutable_store()->set_account_id(r.int64(c)); }},
    {"s.store_item_id", [](Row r, int c, To t) { t.mutable_store()->set_item_id(r.int64(c)); }},
    {"s.flavor", [](Row r, int c, To t) { setText(r, c, *t.mutable_store()->mutable_flavor()); }},
    {"s.matched_status",
     [](Row r, int c, To t) { t.mutable_store()->set_matched_status(r.int64(c)); }},
    {"s.redownloaded_status",
     [](Row r, int c, To t) { t.mutable_store()->set_redownloaded_status(r.int64(c)); }},
    {"s.veska_id", [](Row r, int c, To t) { t.mutable_store()->set_veska_id(r.int64(c)); }},
    {"s.podcast_guid",
     [](Row r, int c, To t) { setText(r, c, *t.mutable_store()->mutable_podcast_guid()); }},
    {"iif(st.rating_changed_ms <> 0 OR st.user_rating <> 0, st.user_rating, NULL)",
     [](Row r, int c, To t) { t.mutable_rating()->set_value(small(r, c)); }},
    {"nullif(st.rating_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_rating()->set_changed_ms(r.int64(c)); }},
    {"iif(st.bookmark_changed_ms <> 0 OR st.bookmark_ms <> 0, st.bookmark_ms, NULL)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_position_ms(large(r, c)); }},
    {"nullif(st.bookmark_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_changed_ms(r.int64(c)); }},
    {"i.added_ms", [](Row r, int c, To t) { t.set_added_ms(r.int64(c)); }},
    {"i.metadata_changed_ms", [](Row r, int c, To t) { t.set_metadata_changed_ms(r.int64(c)); }},
};

// What the record does not hold, after those.
constexpr int ItemIDColumn = std::size(Columns);
constexpr int PlayedColumn = ItemIDColumn + 1;

// Asked for so often in the order of the library, the next one is probably asked for too.
constexpr int NeighboursToReadOn = 4;

// `join` is what keeps the tables in their order, or leaves it to the engine.
std::string statement(const char* item, const char* join, const char* condition) {
    std::string columns;
    for (const ExportColumn& column : Columns)
        columns += fmt::format("{}, ", column.expression);
    return fmt::format(
        "SELECT {0}i.item_id, st.play_count <> 0 OR st.skip_count <> 0 OR st.last_played_ms <> 0"
        " OR st.last_skipped_ms <> 0 FROM {1} {2} item_extra e ON e.item_id = i.item_id"
        " {2} item_store s ON s.item_id = i.item_id {2} item_stats st ON st.item_id = i.item_id"
        " {2} item_artwork w ON w.item_id = i.item_id"
        " LEFT JOIN album al ON al.album_pid = i.album_pid"
        " LEFT JOIN album_artist aa ON aa.album_artist_pid = i.album_artist_pid"
        " LEFT JOIN item_artist ar ON ar.item_artist_pid = i.item_artist_pid"
        " WHERE {3}",
        columns, item, join, condition);
}

}  // namespace

TrackRows::TrackRows(common::Database& database)
    : _onward(database.prepare(
          statement("item i NOT INDEXED", "CROSS JOIN", "i.item_id > ? ORDER BY i.item_id"))),
      _lookUp(database.prepare(statement("item i", "JOIN", "i.item_pid = ?"))) {}

bool TrackRows::readOnTo(std::int64_t pid) {
    if (!_readsOn)
        return false;
    _row = &*_onward;
    if (_onward.step() && _onward->int64(0) == pid)
        return true;
    _onward->reset();
    _readsOn = false;
    _neighbours = 0;
    return false;
}

bool TrackRows::lookUp(std::int64_t pid) {
    _lookUp->reset();
    _lookUp->bindAll(pid);
    _row = &*_lookUp;
    if (!_lookUp.step())
        return false;
    const std::int64_t itemID = _lookUp->int64(ItemIDColumn);
    _neighbours = itemID == _lastItemID + 1 ? _neighbours + 1 : 0;
    _lastItemID = itemID;
    if (_neighbours == NeighboursToReadOn) {
        _onward->bindAll(itemID);
        _readsOn = true;
    }
    return true;
}

void TrackRows::fill(qorx::Track& record) const {
    int index = 0;
    for (const ExportColumn& column : Columns) {
        if (!_row->isNull(index))
            column.read(*_row, index, record);
        ++index;
    }
}

bool TrackRows::wasPlayedOrSkipped() const {
    return _row->int64(PlayedColumn) != 0;
}

}  // namespace korvane
