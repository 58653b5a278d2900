#include "device/korvane/import/names.h"

#include "common/sqlite/database.h"
#include "device/korvane/import/new_ids.h"

namespace korvane {

namespace {

// Names are read again when a cache has grown to this: memory stays bounded whatever a host sends.
constexpr std::size_t CacheLimit = 200'000;

template <typename Cache>
std::int64_t remember(Cache& cache, std::string key, std::int64_t id) {
    if (cache.size() >= CacheLimit) {
        cache.clear();
    }
    cache.emplace(std::move(key), id);
    return id;
}

}  // namespace

std::int64_t Names::album(std::string_view name, std::int64_t albumArtistPID) {
    if (name.empty()) {
        return 0;
    }
    std::string key(name);
    key.push_back('\0');
    key.append(reinterpret_cast<const char*>(&albumArtistPID), sizeof albumArtistPID);
    if (const auto known = _albums.find(key); known != _albums.end()) {
        return known->second;
    }
    std::int64_t id =
        _database.int64("SELECT album_pid FROM album WHERE name = ? AND album_artist_pid = ?", name,
                        albumArtistPID);
    if (id == 0) {
        id = _newIDs.next();
        _database.execute("INSERT INTO album (album_pid, name, album_artist_pid) VALUES (?, ?, ?)",
                          id, name, albumArtistPID);
    }
    return remember(_albums, std::move(key), id);
}

std::int64_t Names::albumArtist(std::string_view name) {
    return artist(_albumArtists, name, "SELECT album_artist_pid FROM album_artist WHERE name = ?",
                  "INSERT INTO album_artist (album_artist_pid, name) VALUES (?, ?)");
}

std::int64_t Names::itemArtist(std::string_view name) {
    return artist(_itemArtists, name, "SELECT item_artist_pid FROM item_artist WHERE name = ?",
                  "INSERT INTO item_artist (item_artist_pid, name) VALUES (?, ?)");
}

std::int64_t Names::artist(Cache& cache, std::string_view name, const char* find,
                           const char* insert) {
    if (name.empty()) {
        return 0;
    }
    if (const auto known = cache.find(name); known != cache.end()) {
        return known->second;
    }
    std::int64_t id = _database.int64(find, name);
    if (id == 0) {
        id = _newIDs.next();
        _database.execute(insert, id, name);
    }
    return remember(cache, std::string(name), id);
}

void removeUnusedNames(common::Database& database) {
    database.execute("DELETE FROM album WHERE album_pid NOT IN (SELECT album_pid FROM item)");
    database.execute(
        "DELETE FROM album_artist WHERE album_artist_pid NOT IN"
        " (SELECT album_artist_pid FROM item)");
    database.execute(
        "DELETE FROM item_artist WHERE item_artist_pid NOT IN (SELECT item_artist_pid FROM item)");
}

}  // namespace korvane
