#include "device/korvane/check/carry_over.h"

#include <fmt/format.h>

#include <map>

#include "common/random_id.h"
#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/check/carried_tracks.h"
#include "device/korvane/check/damaged_rows.h"
#include "device/korvane/database_properties.h"
#include "device/korvane/identifiers.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_fill.h"

namespace korvane {

namespace {

struct Playlist {
    bool isKnown = false;  // its own row could be read
    std::int64_t pid = 0;
    std::string name;
    std::int64_t kind = 0;
    platform::Value rules;
    std::int64_t builtInKind = 0;
    bool isAutoCreated = false;
    std::int64_t syncID = 0;
    std::int64_t globalID = 0;
    std::int64_t sources = 0;
    std::int64_t addedMs = 0;
    std::int64_t nameChangedMs = 0;
    std::int64_t itemsChangedMs = 0;
    struct Entry {
        std::int64_t itemPID, foreignPID, foreignSyncID, foreignGlobalID;
    };
    std::vector<Entry> entries;
};

class CarryOver {
public:
    CarryOver(common::Database& damaged, common::Database& sound, std::int64_t nowMs)
        : _damaged(damaged), _sound(sound), _nowMs(nowMs), _tracks(damaged, sound) {}

    CarriedOver run() {
        _tracks.carry(_result);
        carryPlaylists();
        carryPeers();
        carryRows("kenning_metadata", "kenning_id, checksum, data", "kenning_id", "");
        carryRows("kenning_similarities", "kenning_id, data", "kenning_id", "");
        carryRows("kenning_config", "id, data, default_num_results, min_num_results, version", "id",
                  "");
        carryRows("field_change", "item_pid, field, changed_ms", "item_pid", "");
        carryRows("removed_memory",
                  "global_id, item_pid, user_rating, rating_changed_ms, bookmark_ms, "
                  "bookmark_changed_ms, date_added",
                  "global_id", "");
        carryRows("removed_play_statistics",
                  "global_id, origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms",
                  "global_id", "");
        for (const char* kind : {"entity_kind = 0", "entity_kind = 1"})
            carryRows("deleted_entry", "global_id, entity_kind, deleted_ms, pid", "global_id",
                      kind);
        fillSmartPlaylists(_sound, _nowMs / 1000);
        return _result;
    }

private:
    // Rows that mean the same in both libraries; what the sound one has stays.
    void carryRows(const char* table, const char* columns, const char* key, const char* condition) {
        _result.gaps += readAroundDamage(
            _damaged, {columns, table, key, condition}, [&](common::Statement& row) {
                std::string values;
                for (int i = 0; i < row.columnCount(); ++i)
                    values += i == 0 ? "?" : ", ?";
                auto insert = _sound.prepare(fmt::format(
                    "INSERT OR IGNORE INTO {} ({}) VALUES ({})", table, columns, values));
                for (int i = 0; i < row.columnCount(); ++i)
                    insert->bind(i + 1, row.value(i));
                insert.run();
            });
    }

    void carryPlaylists() {
        std::map<std::int64_t, Playlist> playlists;  // by container_id
        readPlaylists(playlists);
        for (auto& [containerID, playlist] : playlists) {
            if (!playlist.isKnown)
                giveName(playlist);
            if (!playlist.isAutoCreated && !isThere(playlist))
                insert(playlist);
        }
    }

    void readPlaylists(std::map<std::int64_t, Playlist>& playlists) {
        _result.gaps += readAroundDamage(
            _damaged,
            {"container_id, container_pid, name, kind, smart_rules, built_in_kind, auto_created, "
             "sync_id, global_id, sources, added_ms, name_changed_ms, items_changed_ms",
             "container", "container_id", ""},
            [&](common::Statement& row) {
                playlists[row.int64(0)] = {true,
                                           row.int64(1),
                                           std::string(row.text(2)),
                                           row.int64(3),
                                           row.value(4),
                                           row.int64(5),
                                           row.int64(6) != 0,
                                           row.int64(7),
                                           row.int64(8),
                                           row.int64(9),
                                           row.int64(10),
                                           row.int64(11),
                                           row.int64(12),
                                           {}};
            });
        _result.gaps += readAroundDamage(
            _damaged,
            {"container_id, item_pid, foreign_pid, foreign_sync_id, foreign_global_id",
             "container_item", "container_id", ""},
            [&](common::Statement& row) {
                playlists[row.int64(0)].entries.push_back(
                    {row.int64(1), row.int64(2), row.int64(3), row.int64(4)});
            });
    }

    void giveName(Playlist& playlist) {
        playlist.pid = newPersistentID(_sound);
        playlist.name = fmt::format("Recovered playlist {}", ++_nameless);
        playlist.globalID = common::randomPositiveId();
        playlist.sources = OwnerSourceBit;
        playlist.addedMs = playlist.nameChangedMs = playlist.itemsChangedMs = _nowMs;
    }

    bool isThere(const Playlist& playlist) {
        return _sound.int64(
                   "SELECT count(*) FROM container WHERE container_pid = ?1 OR (global_id = ?2 AND "
                   "global_id <> 0) OR (sync_id = ?3 AND sync_id <> 0)",
                   playlist.pid, playlist.globalID, playlist.syncID) != 0;
    }

    void insert(const Playlist& playlist) {
        _sound.execute(
            "INSERT INTO container (container_pid, name, kind, smart_rules, built_in_kind, "
            "sync_id, "
            "global_id, sources, added_ms, name_changed_ms, items_changed_ms) VALUES (?, ?, ?, ?, "
            "?, "
            "?, ?, ?, ?, ?, ?)",
            playlist.pid, playlist.name, playlist.kind, playlist.rules, playlist.builtInKind,
            playlist.syncID, playlist.globalID, playlist.sources, playlist.addedMs,
            playlist.nameChangedMs, playlist.itemsChangedMs);
        ++_result.playlists;
        const std::int64_t containerID = _sound.int64(
            "SELECT container_id FROM container WHERE container_pid = ?", playlist.pid);
        std::int64_t position = 0;
        for (const Playlist::Entry& entry : playlist.entries) {
            const std::int64_t track = _tracks.pidOf(entry.itemPID);
            _sound.execute(
                "INSERT INTO container_item (container_id, position, item_pid, foreign_pid, "
                "foreign_sync_id, foreign_global_id) VALUES (?, ?, ?, ?, ?, ?)",
                containerID, position++, track,
                track == 0 && entry.itemPID != 0 ? entry.itemPID : entry.foreignPID,
                entry.foreignSyncID, entry.foreignGlobalID);
        }
    }

    // Other devices keep their names of entries and their claims; what was exchanged with them
    // begins anew.
    void carryPeers() {
        std::map<std::int64_t, std::int64_t> peers;
        _result.gaps += readAroundDamage(
            _damaged, {"peer_id, peer_uid", "peer", "peer_id", ""}, [&](common::Statement& row) {
                const std::string uid(row.text(1));
                _sound.execute("INSERT OR IGNORE INTO peer (peer_uid) VALUES (?)", uid);
                peers[row.int64(0)] =
                    _sound.int64("SELECT peer_id FROM peer WHERE peer_uid = ?", uid);
            });
        for (const auto& [damagedPeer, peer] : peers)
            for (const int kind : {0, 1})
                carryIdentities(damagedPeer, peer, kind);
    }

    void carryIdentities(std::int64_t damagedPeer, std::int64_t peer, int kind) {
        _result.gaps += readAroundDamage(
            _damaged,
            {"peer_pid, pid, claimed", "peer_identity", "peer_pid",
             fmt::format("peer_id = {} AND entity_kind = {}", damagedPeer, kind)},
            [&](common::Statement& row) {
                const std::int64_t pid = kind == 0 ? _tracks.pidOf(row.int64(1)) : row.int64(1);
                if (pid != 0)
                    _sound.execute(
                        "INSERT OR IGNORE INTO peer_identity (peer_id, entity_kind, peer_pid, pid, "
                        "claimed) VALUES (?, ?, ?, ?, ?)",
                        peer, kind, row.int64(0), pid, row.int64(2));
            });
    }

    common::Database& _damaged;
    common::Database& _sound;
    const std::int64_t _nowMs;
    CarriedTracks _tracks;
    CarriedOver _result;
    int _nameless = 0;
};

}  // namespace

CarriedOver carryOver(common::Database& damaged, common::Database& sound, std::int64_t nowMs) {
    return CarryOver(damaged, sound, nowMs).run();
}

}  // namespace korvane
