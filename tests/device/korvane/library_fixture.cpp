#include "tests/device/korvane/library_fixture.h"

#include "common/sqlite/database.h"

namespace test {

namespace {

std::int64_t nameID(common::Database& database, const std::string& table, const std::string& column,
                    const std::string& name) {
    if (name.empty())
        return 0;
    const auto find = "SELECT " + column + " FROM " + table + " WHERE name = ?";
    if (const auto id = database.int64(find, name))
        return id;
    database.execute("INSERT INTO " + table + " (name) VALUES (?)", name);
    return database.int64(find, name);
}

}  // namespace

void addTrack(common::Database& database, const NewTrack& track) {
    database.execute(
        "INSERT INTO item (item_pid, media_type, sources, disc_number, track_number, album_pid, "
        "album_artist_pid, item_artist_pid) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        track.pid, track.mediaType, track.sources, track.disc, track.number,
        nameID(database, "album", "album_pid", track.album),
        nameID(database, "album_artist", "album_artist_pid", track.albumArtist),
        nameID(database, "item_artist", "item_artist_pid", track.artist));
    const auto id = database.lastInsertedRow();
    database.execute(
        "INSERT INTO item_extra (item_id, item_pid, title, global_id) VALUES (?, ?, nullif(?, ''), "
        "?)",
        id, track.pid, track.title, track.globalID);
    database.execute("INSERT INTO item_store (item_id, item_pid, sync_id) VALUES (?, ?, ?)", id,
                     track.pid, track.syncID);
    database.execute("INSERT INTO item_stats (item_id, item_pid) VALUES (?, ?)", id, track.pid);
    database.execute("INSERT INTO item_artwork (item_id, item_pid) VALUES (?, ?)", id, track.pid);
}

std::string dumpOf(korvane::Library& library) {
    return library.connections().reading<std::string>([&](common::Database& database) {
        std::vector<std::string> tables;
        {
            common::Query names =
                database.query("SELECT name FROM sqlite_schema WHERE type = 'table' ORDER BY name");
            while (names.step()) {
                tables.emplace_back(names->text(0));
            }
        }
        std::string result;
        for (const std::string& table : tables) {
            common::Query rows = database.query("SELECT * FROM " + table + " ORDER BY 1, 2");
            while (rows.step()) {
                result += table;
                for (int column = 0; column < rows->columnCount(); ++column) {
                    result += "|" + rows->value(column).description();
                }
                result += "\n";
            }
        }
        return result;
    });
}

}  // namespace test
