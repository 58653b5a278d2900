#include "device/korvane/schema.h"

namespace korvane {

namespace {

// A track is one row in each of item, item_extra, item_store, item_stats and item_artwork. They
// share item_id, which is given in order of arrival, so rows that came together lie together and
// are read in table order; item_pid is the public, random id. The triggers delete the other rows
// with the row of item.
constexpr char ItemTables[] = R"sql(
CREATE TABLE item (
    item_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL UNIQUE,
    media_type INTEGER NOT NULL DEFAULT 0,
    sources INTEGER NOT NULL DEFAULT 0,           -- bits: schema.h
    base_location_id INTEGER NOT NULL DEFAULT 0,  -- 0: there is no file
    needs_restore INTEGER NOT NULL DEFAULT 0,
    is_rental INTEGER NOT NULL DEFAULT 0,
    disc_number INTEGER NOT NULL DEFAULT 0,
    track_number INTEGER NOT NULL DEFAULT 0,
    album_pid INTEGER NOT NULL DEFAULT 0,         -- 0: has none; the next two as well
    album_artist_pid INTEGER NOT NULL DEFAULT 0,
    item_artist_pid INTEGER NOT NULL DEFAULT 0,
    album_artist_order INTEGER NOT NULL DEFAULT 0,  -- places among all sort keys: sort_map;
    album_order INTEGER NOT NULL DEFAULT 0,         -- 0 until the transaction's end places the item
    date_added INTEGER NOT NULL DEFAULT 0,        -- seconds since 1970
    added_ms INTEGER NOT NULL DEFAULT 0,          -- birth of this incarnation, milliseconds since 1970
    metadata_changed_ms INTEGER NOT NULL DEFAULT 0  -- when its metadata came; later: field_change
);
-- Fields that changed later than the track's metadata came.
CREATE TABLE field_change (
    item_pid INTEGER NOT NULL,
    field INTEGER NOT NULL,                       -- number of the field in the record of a track
    changed_ms INTEGER NOT NULL,
    PRIMARY KEY (item_pid, field)
) WITHOUT ROWID;
CREATE TABLE item_extra (
    item_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL,
    title TEXT,
    location_file_name TEXT NOT NULL DEFAULT '',
    download_identifier TEXT,
    total_time_ms INTEGER NOT NULL DEFAULT 0,
    total_size INTEGER NOT NULL DEFAULT 0,        -- bytes of the media file
    global_id INTEGER NOT NULL DEFAULT 0,         -- identity across devices and hosts; 0: none yet
    kenning_id INTEGER,
    pending_kenning_checksum INTEGER,
    year INTEGER NOT NULL DEFAULT 0,
    disc_count INTEGER NOT NULL DEFAULT 0,
    track_count INTEGER NOT NULL DEFAULT 0,
    compilation INTEGER NOT NULL DEFAULT 0,
    bit_rate INTEGER NOT NULL DEFAULT 0,          -- bits a second
    sample_rate INTEGER NOT NULL DEFAULT 0,       -- Hz
    bpm INTEGER NOT NULL DEFAULT 0,
    file_extension TEXT NOT NULL DEFAULT '',      -- without dot, lower case
    content_hash BLOB,                            -- XXH3-128 of the media file
    host_path BLOB,                               -- below the host's folder, raw bytes
    release_date INTEGER NOT NULL DEFAULT 0,      -- seconds since 1970
    sort_title TEXT,
    sort_artist TEXT,
    sort_album TEXT,
    sort_album_artist TEXT,
    composer TEXT,
    genre TEXT,
    comment TEXT,
    grouping TEXT,
    show TEXT,
    season_number INTEGER NOT NULL DEFAULT 0,
    episode_number INTEGER NOT NULL DEFAULT 0,
    episode_id TEXT,
    description TEXT,
    chapter_data BLOB                             -- flattened table of contents
);
CREATE TABLE item_store (
    item_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL,
    sync_id INTEGER NOT NULL DEFAULT 0,
    account_id INTEGER,                           -- this and the next six: null when there is none
    store_item_id INTEGER,
    flavor TEXT,
    matched_status INTEGER,
    redownloaded_status INTEGER,
    veska_id INTEGER,
    podcast_guid TEXT,
    match_redownload_parameters TEXT,
    purchase_history_id INTEGER NOT NULL DEFAULT 0,
    purchase_history_token INTEGER NOT NULL DEFAULT 0,
    purchase_history_redownload_parameters TEXT,
    is_temporary_cloud_download INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE item_stats (
    item_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL,
    user_rating INTEGER NOT NULL DEFAULT 0,       -- 0 to 100
    rating_changed_ms INTEGER NOT NULL DEFAULT 0, -- milliseconds since 1970; 0: never
    bookmark_ms INTEGER NOT NULL DEFAULT 0,
    bookmark_changed_ms INTEGER NOT NULL DEFAULT 0,
    play_count INTEGER NOT NULL DEFAULT 0,        -- this and the next three: over all origins,
    skip_count INTEGER NOT NULL DEFAULT 0,        -- kept by the triggers on play_statistics
    last_played_ms INTEGER NOT NULL DEFAULT 0,
    last_skipped_ms INTEGER NOT NULL DEFAULT 0
);
-- Absolute counts of one origin (a library's or host's uid); merged by the larger.
CREATE TABLE play_statistics (
    item_pid INTEGER NOT NULL,
    origin_uid TEXT NOT NULL,
    play_count INTEGER NOT NULL DEFAULT 0,
    skip_count INTEGER NOT NULL DEFAULT 0,
    last_played_ms INTEGER NOT NULL DEFAULT 0,
    last_skipped_ms INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (item_pid, origin_uid)
) WITHOUT ROWID;
CREATE TABLE item_artwork (
    item_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL,
    sync_artwork_token TEXT NOT NULL DEFAULT '',
    cloud_artwork_token TEXT NOT NULL DEFAULT '',
    store_artwork_token TEXT NOT NULL DEFAULT '',
    purchase_history_artwork_token TEXT NOT NULL DEFAULT '',
    -- By source alone, whether or not the picture is there.
    best_artwork_token TEXT AS (CASE
        WHEN sync_artwork_token <> '' THEN sync_artwork_token
        WHEN store_artwork_token <> '' THEN store_artwork_token
        WHEN purchase_history_artwork_token <> '' THEN purchase_history_artwork_token
        ELSE cloud_artwork_token END)
);
CREATE INDEX item_extra_pid ON item_extra (item_pid);
CREATE INDEX item_store_pid ON item_store (item_pid);
CREATE INDEX item_artwork_pid ON item_artwork (item_pid);
CREATE INDEX item_stats_pid ON item_stats (item_pid);
CREATE INDEX item_store_sync_id ON item_store (sync_id) WHERE sync_id <> 0;
CREATE INDEX item_extra_global_id ON item_extra (global_id) WHERE global_id <> 0;
CREATE INDEX item_extra_kenning_id ON item_extra (kenning_id) WHERE kenning_id IS NOT NULL;
CREATE INDEX item_unplaced ON item (item_id) WHERE album_order = 0;
CREATE INDEX item_without_file ON item (item_id) WHERE base_location_id = 0;
CREATE INDEX item_needs_restore ON item (item_id) WHERE needs_restore <> 0;
)sql";

constexpr char NameTables[] = R"sql(
CREATE TABLE album (
    album_pid INTEGER PRIMARY KEY,
    name TEXT NOT NULL,
    album_artist_pid INTEGER NOT NULL DEFAULT 0,
    representative_item_pid INTEGER NOT NULL DEFAULT 0,
    representative_item_artwork_token TEXT NOT NULL DEFAULT ''
);
CREATE UNIQUE INDEX album_name ON album (name, album_artist_pid);
CREATE TABLE album_artist (
    album_artist_pid INTEGER PRIMARY KEY,
    name TEXT NOT NULL UNIQUE,
    representative_item_pid INTEGER NOT NULL DEFAULT 0,
    representative_item_artwork_token TEXT NOT NULL DEFAULT '',
    artist_artwork_token TEXT NOT NULL DEFAULT ''
);
CREATE TABLE item_artist (
    item_artist_pid INTEGER PRIMARY KEY,
    name TEXT NOT NULL UNIQUE,
    artist_artwork_token TEXT NOT NULL DEFAULT ''
);
-- The place of each sort key (case-folded) among all; gaps let a new one in without renumbering.
-- Orders are unique, so a renumbering can map old places to new ones.
CREATE TABLE sort_map (
    sort_key TEXT PRIMARY KEY,
    sort_order INTEGER NOT NULL UNIQUE
) WITHOUT ROWID;
CREATE TABLE base_location (
    base_location_id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE                     -- below /var/mobile/Media/
);
-- The original pictures that lie on disk.
CREATE TABLE artwork (
    artwork_token TEXT PRIMARY KEY,
    relative_path TEXT NOT NULL,
    artwork_type INTEGER NOT NULL,                -- 1 cover, 3 chapter
    source_type INTEGER NOT NULL,                 -- 1 companion, 2 host, 3 made here from a film
    picture_media_type INTEGER NOT NULL           -- bundles need media_type to stand in item alone
) WITHOUT ROWID;
CREATE INDEX artwork_path ON artwork (relative_path);
)sql";

constexpr char KenningTables[] = R"sql(
CREATE TABLE kenning_config (
    id INTEGER PRIMARY KEY,
    data BLOB,
    default_num_results INTEGER,
    min_num_results INTEGER,
    version INTEGER
);
CREATE TABLE kenning_metadata (
    kenning_id INTEGER PRIMARY KEY,
    checksum INTEGER,
    data BLOB
);
CREATE TABLE kenning_similarities (
    kenning_id INTEGER PRIMARY KEY,
    data BLOB
);
)sql";

constexpr char ContainerTables[] = R"sql(
CREATE TABLE container (
    container_id INTEGER PRIMARY KEY,
    container_pid INTEGER NOT NULL UNIQUE,
    name TEXT NOT NULL DEFAULT '',
    kind INTEGER NOT NULL DEFAULT 0,              -- 0 plain, 1 smart
    smart_rules BLOB,                             -- docs/formats.md
    built_in_kind INTEGER NOT NULL DEFAULT 0,     -- 0: not in place of a built-in playlist
    auto_created INTEGER NOT NULL DEFAULT 0,      -- made by the library itself
    sync_id INTEGER NOT NULL DEFAULT 0,
    global_id INTEGER NOT NULL DEFAULT 0,
    sources INTEGER NOT NULL DEFAULT 0,
    added_ms INTEGER NOT NULL DEFAULT 0,          -- as of a track
    name_changed_ms INTEGER NOT NULL DEFAULT 0,   -- milliseconds since 1970
    items_changed_ms INTEGER NOT NULL DEFAULT 0,  -- of the items as a whole, kind and rules
    changed_ms INTEGER AS (max(name_changed_ms, items_changed_ms))
);
CREATE INDEX container_sync_id ON container (sync_id) WHERE sync_id <> 0;
CREATE INDEX container_global_id ON container (global_id) WHERE global_id <> 0;
-- An entry that is not resolved has item_pid 0 and keeps the ids that it came with.
CREATE TABLE container_item (
    container_id INTEGER NOT NULL,
    position INTEGER NOT NULL,                    -- ascending; gaps mean nothing
    item_pid INTEGER NOT NULL DEFAULT 0,
    foreign_pid INTEGER NOT NULL DEFAULT 0,
    foreign_sync_id INTEGER NOT NULL DEFAULT 0,
    foreign_global_id INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (container_id, position)
) WITHOUT ROWID;
CREATE INDEX container_item_pid ON container_item (item_pid) WHERE item_pid <> 0;
CREATE INDEX container_item_global ON container_item (foreign_global_id)
    WHERE item_pid = 0 AND foreign_global_id <> 0;
)sql";

constexpr char ChangeTables[] = R"sql(
-- The latest change of each entry. AUTOINCREMENT: a revision is never given twice, and the counter
-- (sqlite_sequence) is committed with the change that it counts. The identity columns of a
-- deletion are filled in, since its row is gone; of a living entry they are 0: ask its row.
CREATE TABLE entity_revision (
    revision INTEGER PRIMARY KEY AUTOINCREMENT,
    entity_kind INTEGER NOT NULL,                 -- 0 track, 1 playlist
    pid INTEGER NOT NULL,
    deleted INTEGER NOT NULL DEFAULT 0,
    origin TEXT NOT NULL,
    sync_id INTEGER NOT NULL DEFAULT 0,
    global_id INTEGER NOT NULL DEFAULT 0,
    media_type INTEGER NOT NULL DEFAULT 0,
    built_in_kind INTEGER NOT NULL DEFAULT 0,
    deleted_ms INTEGER NOT NULL DEFAULT 0         -- of a deletion, milliseconds since 1970
);
CREATE UNIQUE INDEX entity_revision_entity ON entity_revision (entity_kind, pid);
CREATE INDEX entity_revision_deleted ON entity_revision (revision) WHERE deleted <> 0;
-- Read by the triggers, in the transaction that changes.
CREATE TABLE change_state (
    id INTEGER PRIMARY KEY CHECK (id = 0),
    origin TEXT NOT NULL DEFAULT '',              -- whose change: '' the owner, else a peer's uid
    exports_deletions INTEGER NOT NULL DEFAULT 0, -- whether a deletion is told to others
    deletion_ms INTEGER NOT NULL DEFAULT 0,       -- and then, when it was made
    base_revision INTEGER NOT NULL DEFAULT 0,     -- the counter when the transaction began
    inserts_in_bulk INTEGER NOT NULL DEFAULT 0    -- whoever inserts tracks gives their revisions
);
INSERT INTO change_state (id) VALUES (0);
CREATE TABLE tombstone (
    entity_kind INTEGER NOT NULL,
    pid INTEGER NOT NULL,
    sync_id INTEGER NOT NULL,
    global_id INTEGER NOT NULL,
    PRIMARY KEY (entity_kind, pid)
) WITHOUT ROWID;
-- Every incarnation born until then is deleted, wherever it comes from; kept for good.
CREATE TABLE deleted_entry (
    entity_kind INTEGER NOT NULL,
    global_id INTEGER NOT NULL,
    deleted_ms INTEGER NOT NULL,
    pid INTEGER NOT NULL,                         -- that entity_revision tells the deletion by
    PRIMARY KEY (entity_kind, global_id)
) WITHOUT ROWID;
-- What a track gets back when it returns, by its global id.
CREATE TABLE removed_memory (
    global_id INTEGER PRIMARY KEY,
    item_pid INTEGER NOT NULL,
    user_rating INTEGER NOT NULL,
    rating_changed_ms INTEGER NOT NULL,
    bookmark_ms INTEGER NOT NULL,
    bookmark_changed_ms INTEGER NOT NULL,
    date_added INTEGER NOT NULL
);
CREATE INDEX removed_memory_pid ON removed_memory (item_pid);
CREATE TABLE removed_play_statistics (
    global_id INTEGER NOT NULL,
    origin_uid TEXT NOT NULL,
    play_count INTEGER NOT NULL,
    skip_count INTEGER NOT NULL,
    last_played_ms INTEGER NOT NULL,
    last_skipped_ms INTEGER NOT NULL,
    PRIMARY KEY (global_id, origin_uid)
) WITHOUT ROWID;
-- Places in plain playlists stay in container_item, unresolved, with foreign_global_id.
)sql";

constexpr char PeerTables[] = R"sql(
CREATE TABLE peer (
    peer_id INTEGER PRIMARY KEY,
    peer_uid TEXT NOT NULL UNIQUE,                -- the uid of a device's library
    acknowledged_revision INTEGER NOT NULL DEFAULT 0,  -- of ours, that the peer has
    received_revision INTEGER NOT NULL DEFAULT 0       -- of the peer's, that we have
);
-- A peer's id of an entry, and ours.
CREATE TABLE peer_identity (
    peer_id INTEGER NOT NULL,
    entity_kind INTEGER NOT NULL,
    peer_pid INTEGER NOT NULL,
    pid INTEGER NOT NULL,
    claimed INTEGER NOT NULL DEFAULT 1,           -- the peer's last full exchange named it
    PRIMARY KEY (peer_id, entity_kind, peer_pid)
) WITHOUT ROWID;
CREATE INDEX peer_identity_pid ON peer_identity (entity_kind, pid);
)sql";

constexpr char PropertyTables[] = R"sql(
CREATE TABLE database_property (
    key TEXT PRIMARY KEY,
    value,
    value_type INTEGER NOT NULL                   -- platform::Value::Type
) WITHOUT ROWID;
-- Which file this database is: a copy has another and gets a new uid.
CREATE TABLE library_identity (
    id INTEGER PRIMARY KEY CHECK (id = 0),
    library_uid TEXT NOT NULL,
    file_identity TEXT NOT NULL
);
-- Rows of item and container as the triggers count them. A damaged file can lose rows that the
-- engine's own check does not miss.
CREATE TABLE row_count (
    id INTEGER PRIMARY KEY CHECK (id = 0),
    items INTEGER NOT NULL DEFAULT 0,
    containers INTEGER NOT NULL DEFAULT 0
);
INSERT INTO row_count (id) VALUES (0);
)sql";

constexpr char PurchaseOrigins[] = R"sql(
-- Where a track's file was downloaded from, for as long as the track is there: a device restore
-- does not bring the file back.
CREATE TABLE purchase (
    item_pid INTEGER PRIMARY KEY,
    source TEXT NOT NULL,                         -- an address
    kind TEXT NOT NULL                            -- of download
) WITHOUT ROWID;
CREATE TRIGGER purchase_gone AFTER DELETE ON item BEGIN
DELETE FROM purchase WHERE item_pid = OLD.item_pid;
END;
)sql";

}  // namespace

std::string firstSchemaTables() {
    return std::string(ItemTables) + NameTables + KenningTables + ContainerTables + ChangeTables +
           PeerTables + PropertyTables;
}

std::string purchaseOriginsSchema() {
    return PurchaseOrigins;
}

}  // namespace korvane
