// Declares the session extension, which Debian's library has.
#define SQLITE_ENABLE_SESSION 1
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include "bench/bare_export.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "common/qorx/qorx.pb.h"

namespace bench {
namespace {

using Row = sqlite3_stmt*;
using To = qorx::Track&;

constexpr std::size_t PieceSize = 64u << 10;

std::int64_t number(Row row, int column) {
    return sqlite3_column_int64(row, column);
}
std::uint32_t small(Row row, int column) {
    return static_cast<std::uint32_t>(number(row, column));
}
std::uint64_t large(Row row, int column) {
    return static_cast<std::uint64_t>(number(row, column));
}
void bytes(Row row, int column, std::string* field) {
    field->assign(static_cast<const char*>(sqlite3_column_blob(row, column)),
                  static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
}

struct Column {
    const char* expression;
    void (*read)(Row row, int column, qorx::Track& track);
};

constexpr Column Columns[] = {
    {"i.item_pid", [](Row r, int c, To t) { t.set_persistent_id(number(r, c)); }},
    {"s.sync_id", [](Row r, int c, To t) { t.set_sync_id(number(r, c)); }},
    {"e.global_id", [](Row r, int c, To t) { t.set_global_id(number(r, c)); }},
    {"i.media_type", [](Row r, int c, To t) { t.set_media_type(small(r, c)); }},
    {"e.title", [](Row r, int c, To t) { bytes(r, c, t.mutable_title()); }},
    {"ar.name", [](Row r, int c, To t) { bytes(r, c, t.mutable_artist()); }},
    {"al.name", [](Row r, int c, To t) { bytes(r, c, t.mutable_album()); }},
    {"aa.name", [](Row r, int c, To t) { bytes(r, c, t.mutable_album_artist()); }},
    {"e.composer", [](Row r, int c, To t) { bytes(r, c, t.mutable_composer()); }},
    {"e.genre", [](Row r, int c, To t) { bytes(r, c, t.mutable_genre()); }},
    {"e.comment", [](Row r, int c, To t) { bytes(r, c, t.mutable_comment()); }},
    {"e.grouping", [](Row r, int c, To t) { bytes(r, c, t.mutable_grouping()); }},
    {"e.sort_title", [](Row r, int c, To t) { bytes(r, c, t.mutable_sort_title()); }},
    {"e.sort_artist", [](Row r, int c, To t) { bytes(r, c, t.mutable_sort_artist()); }},
    {"e.sort_album", [](Row r, int c, To t) { bytes(r, c, t.mutable_sort_album()); }},
    {"e.sort_album_artist", [](Row r, int c, To t) { bytes(r, c, t.mutable_sort_album_artist()); }},
    {"e.year", [](Row r, int c, To t) { t.set_year(small(r, c)); }},
    {"i.disc_number", [](Row r, int c, To t) { t.set_disc_number(small(r, c)); }},
    {"e.disc_count", [](Row r, int c, To t) { t.set_disc_count(small(r, c)); }},
    {"i.track_number", [](Row r, int c, To t) { t.set_track_number(small(r, c)); }},
    {"e.track_count", [](Row r, int c, To t) { t.set_track_count(small(r, c)); }},
    {"e.compilation", [](Row r, int c, To t) { t.set_compilation(number(r, c) != 0); }},
    {"e.total_time_ms", [](Row r, int c, To t) { t.set_total_time_ms(large(r, c)); }},
    {"e.total_size", [](Row r, int c, To t) { t.set_total_size(large(r, c)); }},
    {"e.bit_rate", [](Row r, int c, To t) { t.set_bit_rate(small(r, c)); }},
    {"e.sample_rate", [](Row r, int c, To t) { t.set_sample_rate(small(r, c)); }},
    {"e.bpm", [](Row r, int c, To t) { t.set_bpm(small(r, c)); }},
    {"e.file_extension", [](Row r, int c, To t) { bytes(r, c, t.mutable_file_extension()); }},
    {"e.content_hash", [](Row r, int c, To t) { bytes(r, c, t.mutable_content_hash()); }},
    {"e.host_path", [](Row r, int c, To t) { bytes(r, c, t.mutable_host_path()); }},
    {"i.date_added", [](Row r, int c, To t) { t.set_date_added(number(r, c)); }},
    {"e.release_date", [](Row r, int c, To t) { t.set_release_date(number(r, c)); }},
    {"i.is_rental", [](Row r, int c, To t) { t.set_is_rental(number(r, c) != 0); }},
    {"e.show", [](Row r, int c, To t) { bytes(r, c, t.mutable_show()); }},
    {"e.season_number", [](Row r, int c, To t) { t.set_season_number(small(r, c)); }},
    {"e.episode_number", [](Row r, int c, To t) { t.set_episode_number(small(r, c)); }},
    {"e.episode_id", [](Row r, int c, To t) { bytes(r, c, t.mutable_episode_id()); }},
    {"e.description", [](Row r, int c, To t) { bytes(r, c, t.mutable_description()); }},
    {"nullif(w.sync_artwork_token, '')",
     [](Row r, int c, To t) { bytes(r, c, t.mutable_artwork_token()); }},
    {"e.chapter_data", [](Row r, int c, To t) { bytes(r, c, t.mutable_chapter_data()); }},
    {"e.kenning_id", [](Row r, int c, To t) { t.set_kenning_id(number(r, c)); }},
    {"e.pending_kenning_checksum",
     [](Row r, int c, To t) { t.set_kenning_checksum(number(r, c)); }},
    {"s.account_id", [](Row r, int c, To t) { t.mutable_store()->set_account_id(number(r, c)); }},
    {"s.store_item_id", [](Row r, int c, To t) { t.mutable_store()->set_item_id(number(r, c)); }},
    {"s.flavor", [](Row r, int c, To t) { bytes(r, c, t.mutable_store()->mutable_flavor()); }},
    {"s.matched_status",
     [](Row r, int c, To t) { t.mutable_store()->set_matched_status(number(r, c)); }},
    {"s.redownloaded_status",
     [](Row r, int c, To t) { t.mutable_store()->set_redownloaded_status(number(r, c)); }},
    {"s.veska_id", [](Row r, int c, To t) { t.mutable_store()->set_veska_id(number(r, c)); }},
    {"s.podcast_guid",
     [](Row r, int c, To t) { bytes(r, c, t.mutable_store()->mutable_podcast_guid()); }},
    {"nullif(st.user_rating, 0)",
     [](Row r, int c, To t) { t.mutable_rating()->set_value(small(r, c)); }},
    {"nullif(st.rating_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_rating()->set_changed_ms(number(r, c)); }},
    {"nullif(st.bookmark_ms, 0)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_position_ms(large(r, c)); }},
    {"nullif(st.bookmark_changed_ms, 0)",
     [](Row r, int c, To t) { t.mutable_bookmark()->set_changed_ms(number(r, c)); }},
    {"i.added_ms", [](Row r, int c, To t) { t.set_added_ms(number(r, c)); }},
    {"i.metadata_changed_ms", [](Row r, int c, To t) { t.set_metadata_changed_ms(number(r, c)); }},
};

std::string statement(const char* item, const char* join, const char* condition) {
    std::string columns;
    for (const Column& column : Columns)
        columns += fmt::format("{}{}", columns.empty() ? "" : ", ", column.expression);
    return fmt::format(
        "SELECT {0} FROM {1} {2} item_extra e ON e.item_id = i.item_id {2} item_store s ON "
        "s.item_id = i.item_id {2} item_stats st ON st.item_id = i.item_id {2} item_artwork w ON "
        "w.item_id = i.item_id LEFT JOIN album al ON al.album_pid = i.album_pid LEFT JOIN "
        "album_artist aa ON aa.album_artist_pid = i.album_artist_pid LEFT JOIN item_artist ar ON "
        "ar.item_artist_pid = i.item_artist_pid {3}",
        columns, item, join, condition);
}

class Encoder {
public:
    void add(Row row) {
        _track.Clear();
        int index = 0;
        for (const Column& column : Columns) {
            if (sqlite3_column_type(row, index) != SQLITE_NULL)
                column.read(row, index, _track);
            ++index;
        }
        const std::size_t size = _track.ByteSizeLong();
        const std::size_t before = _piece.size();
        _piece.resize(before + size);
        _track.SerializeWithCachedSizesToArray(_piece.data() + before);
        _bytes += size;
        if (_piece.size() > PieceSize)
            _piece.clear();
    }
    std::uint64_t bytes() const { return _bytes; }

private:
    qorx::Track _track;
    std::vector<std::uint8_t> _piece;
    std::uint64_t _bytes = 0;
};

constexpr const char* Tables[] = {"item",         "item_extra",   "item_store",
                                  "item_stats",   "item_artwork", "album",
                                  "album_artist", "item_artist",  "entity_revision"};

std::span<const char* const> names(RecordedTables tables) {
    constexpr std::size_t OfTracks = std::size(Tables) - 1;
    return {Tables, tables == RecordedTables::Tracks ? OfTracks : std::size(Tables)};
}

std::string textOf(sqlite3* connection, const std::string& query) {
    const BareStatement row = prepareBare(connection, query);
    sqlite3_step(row.get());
    return reinterpret_cast<const char*>(sqlite3_column_text(row.get(), 0));
}

void require(int result, const char* what) {
    if (result == SQLITE_OK)
        return;
    std::fprintf(stderr, "%s: %s\n", what, sqlite3_errstr(result));
    std::exit(1);
}

// Makes the table of the attached database "source" in the main one, with its stored columns alone:
// the extension knows no others. The first is the key. Answers with the names of the columns.
std::string makeTable(sqlite3* connection, const char* table) {
    const std::string columns =
        textOf(connection, fmt::format("SELECT group_concat(name, ', ') FROM "
                                       "pragma_table_info('{}', 'source')",
                                       table));
    const auto key = columns.find(',');
    executeBare(connection, fmt::format("CREATE TABLE main.{} ({} INTEGER PRIMARY KEY{})", table,
                                        columns.substr(0, key), columns.substr(key)));
    return columns;
}

// The indices that the table of "source" has; what a constraint makes is made by name.
void makeIndices(sqlite3* connection, const char* table) {
    std::string script =
        textOf(connection, fmt::format("SELECT ifnull(group_concat(sql, ';'), '') FROM "
                                       "source.sqlite_schema WHERE type = 'index' AND tbl_name = "
                                       "'{}' AND sql IS NOT NULL",
                                       table));
    script += textOf(
        connection,
        fmt::format("SELECT ifnull(group_concat(';CREATE UNIQUE INDEX unique_{0}_' || c.name || ' "
                    "ON {0} (' || c.name || ')', ''), '') FROM pragma_index_list('{0}', 'source') "
                    "l JOIN pragma_index_info(l.name, 'source') c WHERE l.origin = 'u'",
                    table));
    if (!script.empty())
        executeBare(connection, script);
}

}  // namespace

BareTrackReader::BareTrackReader(sqlite3* connection)
    : _connection(connection),
      _all(prepareBare(connection, statement("item i NOT INDEXED", "CROSS JOIN", ""))),
      _one(prepareBare(connection, statement("item i", "JOIN", "WHERE i.item_pid = ?"))) {}

std::uint64_t BareTrackReader::readAll() {
    Encoder encoder;
    while (sqlite3_step(_all.get()) == SQLITE_ROW)
        encoder.add(_all.get());
    sqlite3_reset(_all.get());
    return encoder.bytes();
}

std::uint64_t BareTrackReader::readSome(std::span<const std::int64_t> pids) {
    Encoder encoder;
    executeBare(_connection, "BEGIN");
    for (const std::int64_t pid : pids) {
        sqlite3_bind_int64(_one.get(), 1, pid);
        if (sqlite3_step(_one.get()) == SQLITE_ROW)
            encoder.add(_one.get());
        sqlite3_reset(_one.get());
    }
    executeBare(_connection, "COMMIT");
    return encoder.bytes();
}

struct RecordedChanges::State {
    explicit State(const std::string& path) : connection(openBare(path, WriterCacheKiB)) {}
    ~State() {
        if (session)
            sqlite3session_delete(session);
    }

    BareConnection connection;  // outlives the session
    sqlite3_session* session = nullptr;
};

RecordedChanges::RecordedChanges(const std::string& from, const std::string& path,
                                 RecordedTables tables)
    : _state(std::make_unique<State>(path)) {
    sqlite3* const connection = _state->connection.get();
    executeBare(connection, fmt::format("ATTACH '{}' AS source", from));
    require(sqlite3session_create(connection, "main", &_state->session), "session");
    for (const char* table : names(tables)) {
        const std::string columns = makeTable(connection, table);
        require(sqlite3session_attach(_state->session, table), table);
        executeBare(connection, fmt::format("INSERT INTO main.{0} ({1}) SELECT {1} FROM source.{0}",
                                            table, columns));
    }
    executeBare(connection, "DETACH source");
}

RecordedChanges::~RecordedChanges() = default;

std::uint64_t RecordedChanges::makeChangeset() {
    std::uint64_t bytes = 0;
    const auto take = [](void* sum, const void*, int size) {
        *static_cast<std::uint64_t*>(sum) += static_cast<std::uint64_t>(size);
        return SQLITE_OK;
    };
    require(sqlite3session_changeset_strm(_state->session, take, &bytes), "changeset");
    return bytes;
}

std::vector<std::uint8_t> RecordedChanges::changeset() {
    int size = 0;
    void* bytes = nullptr;
    require(sqlite3session_changeset(_state->session, &size, &bytes), "changeset");
    const std::unique_ptr<void, decltype(&sqlite3_free)> owner(bytes, sqlite3_free);
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    return {begin, begin + size};
}

Cost applyChangeset(std::span<const std::uint8_t> changeset, const std::string& library,
                    const std::string& path, RecordedTables tables) {
    const BareConnection connection = openBare(path, WriterCacheKiB);
    executeBare(connection.get(), fmt::format("ATTACH '{}' AS source", library));
    for (const char* table : names(tables)) {
        makeTable(connection.get(), table);
        makeIndices(connection.get(), table);
    }
    executeBare(connection.get(), "DETACH source");
    const auto onConflict = [](void*, int, sqlite3_changeset_iter*) {
        return SQLITE_CHANGESET_ABORT;
    };
    return costOf([&] {
        require(sqlite3changeset_apply(connection.get(), static_cast<int>(changeset.size()),
                                       const_cast<std::uint8_t*>(changeset.data()), nullptr,
                                       onConflict, nullptr),
                "applying");
    });
}

}  // namespace bench
