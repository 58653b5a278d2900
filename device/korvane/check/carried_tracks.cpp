#include "device/korvane/check/carried_tracks.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/check/damaged_rows.h"
#include "device/korvane/schema.h"
#include "platform/media_library.h"

namespace korvane {

namespace {

using platform::Value;

enum TableNumber : std::size_t { Item, Extra, Store, Stats, Artwork };
constexpr const char* TableNames[] = {"item", "item_extra", "item_store", "item_stats",
                                      "item_artwork"};

// Without item_id and what the engine computes.
std::vector<std::string> columnsOf(common::Database& database, const char* table) {
    std::vector<std::string> columns;
    auto rows = database.query(fmt::format("PRAGMA table_info({})", table));
    while (rows.step())
        if (rows->text(1) != "item_id")
            columns.emplace_back(rows->text(1));
    return columns;
}

std::string placeholders(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += ", ?";
    return text;
}

}  // namespace

std::size_t CarriedTracks::Table::place(const char* column) const {
    return static_cast<std::size_t>(std::ranges::find(columns, column) - columns.begin());
}

CarriedTracks::CarriedTracks(common::Database& damaged, common::Database& sound)
    : _damaged(damaged),
      _sound(sound),
      _newIDs(sound, 0, _nothingReserved, systemRandomNumber),
      _names(sound, _newIDs) {
    for (std::size_t i = 0; i < TableCount; ++i) {
        Table& table = _tables[i];
        table.name = TableNames[i];
        table.columns = columnsOf(sound, table.name);
        table.insert =
            fmt::format("INSERT INTO {} (item_id, {}) VALUES (?{})", table.name,
                        fmt::join(table.columns, ", "), placeholders(table.columns.size()));
    }
}

void CarriedTracks::carry(CarriedOver& result) {
    readNames(result);
    readRows(result);
    for (auto& [itemID, track] : _tracks) {
        if (track.pid == 0)
            continue;
        if (const std::int64_t known = match(track)) {
            join(track, known);
            _pids[track.pid] = known;
            ++result.joined;
        } else {
            insert(track);
            _pids[track.pid] = track.pid;
            ++result.tracks;
        }
    }
    carryPlays(result);
}

std::int64_t CarriedTracks::pidOf(std::int64_t damagedPID) const {
    const auto found = _pids.find(damagedPID);
    return found == _pids.end() ? 0 : found->second;
}

void CarriedTracks::readNames(CarriedOver& result) {
    const auto read = [&](const char* table, const char* columns, const char* key,
                          const std::function<void(common::Statement&)>& row) {
        result.gaps += readAroundDamage(_damaged, {columns, table, key, ""}, row);
    };
    read("item_artist", "item_artist_pid, name", "item_artist_pid",
         [&](common::Statement& row) { _artists[row.int64(0)] = row.text(1); });
    read("album_artist", "album_artist_pid, name", "album_artist_pid",
         [&](common::Statement& row) { _albumArtists[row.int64(0)] = row.text(1); });
    read("album", "album_pid, name, album_artist_pid", "album_pid", [&](common::Statement& row) {
        _albums[row.int64(0)] = {std::string(row.text(1)), row.int64(2)};
    });
}

// A row whose id is another than its sisters' is not believed.
void CarriedTracks::readRows(CarriedOver& result) {
    for (std::size_t i = 0; i < TableCount; ++i) {
        const Table& table = _tables[i];
        const auto pidColumn = static_cast<int>(table.place("item_pid")) + 1;
        result.gaps += readAroundDamage(
            _damaged,
            {fmt::format("item_id, {}", fmt::join(table.columns, ", ")), table.name, "item_id", ""},
            [&](common::Statement& row) {
                Track& track = _tracks[row.int64(0)];
                const std::int64_t pid = row.int64(pidColumn);
                if (track.pid == 0)
                    track.pid = pid;
                if (track.pid != pid)
                    return;
                Row& values = track.rows[i].emplace();
                for (std::size_t column = 0; column < table.columns.size(); ++column)
                    values.push_back(row.value(static_cast<int>(column) + 1));
            });
    }
}

const Value& CarriedTracks::value(const Track& track, std::size_t table, const char* column) const {
    static const Value Nothing;
    const auto& row = track.rows[table];
    return row ? (*row)[_tables[table].place(column)] : Nothing;
}

std::int64_t CarriedTracks::number(const Track& track, std::size_t table,
                                   const char* column) const {
    const Value& found = value(track, table, column);
    return found.isNumber() ? found.int64Value() : 0;
}

// By the own id, the global id, the host's id.
std::int64_t CarriedTracks::match(const Track& track) {
    if (_sound.int64("SELECT count(*) FROM item WHERE item_pid = ?", track.pid) != 0)
        return track.pid;
    if (const std::int64_t globalID = number(track, Extra, "global_id"))
        if (const std::int64_t pid = _sound.int64(
                "SELECT item_pid FROM item_extra WHERE global_id = ? AND global_id <> 0", globalID))
            return pid;
    if (const std::int64_t syncID = number(track, Store, "sync_id"))
        return _sound.int64("SELECT item_pid FROM item_store WHERE sync_id = ? AND sync_id <> 0",
                            syncID);
    return 0;
}

void CarriedTracks::insert(Track& track) {
    insertItem(track);
    const std::int64_t itemID =
        _sound.int64("SELECT item_id FROM item WHERE item_pid = ?", track.pid);
    for (std::size_t table = Extra; table < TableCount; ++table)
        insertRow(table, itemID, track);
}

// Names are looked up by what they say; the place among other tracks is found at the commit.
void CarriedTracks::insertItem(Track& track) {
    const bool hasFile = !value(track, Extra, "location_file_name").isNull();
    const bool isHosts = number(track, Store, "sync_id") != 0;
    _sound.execute("INSERT INTO item (item_pid, media_type, sources) VALUES (?, ?, ?)", track.pid,
                   std::int64_t{KV3MediaTypeMusic},
                   isHosts ? sourceBit(KV3SourceHostData) : OwnerSourceBit);
    if (!track.rows[Item])
        return;
    const auto& columns = _tables[Item].columns;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const std::string& column = columns[i];
        Value written = (*track.rows[Item])[i];
        if (column == "item_pid" || column.ends_with("_order") || !written.isNumber())
            continue;
        const std::int64_t pid = written.int64Value();
        if (column == "base_location_id" && !hasFile)
            written = 0;
        else if (column == "item_artist_pid")
            written = _names.itemArtist(nameIn(_artists, pid));
        else if (column == "album_artist_pid")
            written = _names.albumArtist(nameIn(_albumArtists, pid));
        else if (column == "album_pid") {
            const auto album = _albums.find(pid);
            if (album == _albums.end())
                continue;
            written = _names.album(
                album->second.name,
                _names.albumArtist(nameIn(_albumArtists, album->second.albumArtistPID)));
        }
        _sound.execute(fmt::format("UPDATE item SET {} = ? WHERE item_pid = ?", column), written,
                       track.pid);
    }
}

void CarriedTracks::insertRow(std::size_t table, std::int64_t itemID, const Track& track) {
    if (const auto& row = track.rows[table]) {
        try {
            common::Savepoint savepoint(_sound);
            auto statement = _sound.prepare(_tables[table].insert);
            int index = 0;
            statement->bind(++index, itemID);
            for (const Value& written : *row)
                statement->bind(++index, written);
            statement.run();
            savepoint.commit();
            return;
        } catch (const common::SqliteError& error) {
            if (error.isDiskFull())
                throw;
            // Values that no row may have: noise that looked like one.
        }
    }
    _sound.execute(
        fmt::format("INSERT INTO {} (item_id, item_pid) VALUES (?, ?)", _tables[table].name),
        itemID, track.pid);
}

// What the owner did later wins.
void CarriedTracks::join(const Track& track, std::int64_t pid) {
    if (!track.rows[Stats])
        return;
    _sound.execute(
        "UPDATE item_stats SET user_rating = ?2, rating_changed_ms = ?3 WHERE item_pid = ?1 AND "
        "rating_changed_ms < ?3",
        pid, number(track, Stats, "user_rating"), number(track, Stats, "rating_changed_ms"));
    _sound.execute(
        "UPDATE item_stats SET bookmark_ms = ?2, bookmark_changed_ms = ?3 WHERE item_pid = ?1 AND "
        "bookmark_changed_ms < ?3",
        pid, number(track, Stats, "bookmark_ms"), number(track, Stats, "bookmark_changed_ms"));
}

// Of each origin the larger count. Of a track whose counts by origin are lost the sums remain.
void CarriedTracks::carryPlays(CarriedOver& result) {
    constexpr char Merge[] =
        "INSERT INTO play_statistics (item_pid, origin_uid, play_count, skip_count, "
        "last_played_ms, "
        "last_skipped_ms) VALUES (?, ?, ?, ?, ?, ?) ON CONFLICT (item_pid, origin_uid) DO UPDATE "
        "SET "
        "play_count = max(play_count, excluded.play_count), "
        "skip_count = max(skip_count, excluded.skip_count), "
        "last_played_ms = max(last_played_ms, excluded.last_played_ms), "
        "last_skipped_ms = max(last_skipped_ms, excluded.last_skipped_ms)";
    std::unordered_map<std::int64_t, std::int64_t> plays;
    result.gaps += readAroundDamage(
        _damaged,
        {"item_pid, origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms",
         "play_statistics", "item_pid", ""},
        [&](common::Statement& row) {
            const std::int64_t pid = pidOf(row.int64(0));
            if (pid == 0)
                return;
            plays[row.int64(0)] += row.int64(2) + row.int64(3);
            _sound.execute(Merge, pid, row.text(1), row.int64(2), row.int64(3), row.int64(4),
                           row.int64(5));
        });
    for (const auto& [itemID, track] : _tracks) {
        const std::int64_t played = number(track, Stats, "play_count");
        const std::int64_t skipped = number(track, Stats, "skip_count");
        if (played + skipped > 0 && plays[track.pid] == 0 && pidOf(track.pid) != 0)
            _sound.execute(Merge, pidOf(track.pid), "recovered", played, skipped,
                           number(track, Stats, "last_played_ms"),
                           number(track, Stats, "last_skipped_ms"));
    }
    // The rows of the tracks themselves came with sums.
    _sound.execute(
        "UPDATE item_stats SET (play_count, skip_count) = (SELECT ifnull(sum(play_count), 0), "
        "ifnull(sum(skip_count), 0) FROM play_statistics p WHERE p.item_pid = "
        "item_stats.item_pid)");
}

std::string CarriedTracks::nameIn(const std::unordered_map<std::int64_t, std::string>& names,
                                  std::int64_t pid) const {
    const auto found = names.find(pid);
    return found == names.end() ? "" : found->second;
}

}  // namespace korvane
