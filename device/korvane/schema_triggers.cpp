// The triggers: whichever statement changes what travels of a track or playlist, the entry gets a
// new revision in the same transaction. A second change of it in one transaction, by the same
// origin, needs no other: the connection sets change_state.base_revision at each commit.
#include <fmt/format.h>

#include <initializer_list>
#include <string>

#include "device/korvane/schema.h"

namespace korvane {

namespace {

// Both statements, and not INSERT OR REPLACE: the conflict rule of an outer statement would take
// the place of one in here.
std::string giveRevision(EntityKind kind, const char* pid) {
    return fmt::format(
        "DELETE FROM entity_revision WHERE entity_kind = {0} AND pid = {1};\n"
        "INSERT INTO entity_revision (entity_kind, pid, origin)"
        " SELECT {0}, {1}, origin FROM change_state;\n",
        static_cast<int>(kind), pid);
}

std::string hasNoRevisionYet(EntityKind kind, const char* pid) {
    return fmt::format(
        "NOT EXISTS (SELECT 1 FROM entity_revision r JOIN change_state s"
        " WHERE r.entity_kind = {} AND r.pid = {} AND r.revision > s.base_revision"
        " AND r.deleted = 0 AND r.origin = s.origin)",
        static_cast<int>(kind), pid);
}

using Columns = std::initializer_list<const char*>;

// For the columns of a table that travel; writing an equal value is no change.
std::string revisionOnUpdate(const char* table, EntityKind kind, const char* pid,
                             const Columns& columns) {
    std::string names, differs;
    for (const char* column : columns) {
        names += fmt::format("{}{}", names.empty() ? "" : ", ", column);
        differs += fmt::format("{0}OLD.{1} IS NOT NEW.{1}", differs.empty() ? "" : " OR ", column);
    }
    return fmt::format(
        "CREATE TRIGGER {}_travels AFTER UPDATE OF {} ON {}\nWHEN ({}) AND {}\nBEGIN\n{}END;\n",
        table, names, table, differs, hasNoRevisionYet(kind, pid), giveRevision(kind, pid));
}

std::string trackRevisions() {
    constexpr EntityKind Kind = EntityKind::Track;
    return revisionOnUpdate("item", Kind, "NEW.item_pid",
                            {"media_type", "is_rental", "disc_number", "track_number", "album_pid",
                             "album_artist_pid", "item_artist_pid", "date_added", "added_ms",
                             "metadata_changed_ms"}) +
           revisionOnUpdate(
               "item_extra", Kind, "NEW.item_pid",
               {"title",        "total_time_ms",  "total_size",     "global_id",
                "kenning_id",   "year",           "disc_count",     "track_count",
                "compilation",  "bit_rate",       "sample_rate",    "bpm",
                "content_hash", "file_extension", "host_path",      "release_date",
                "sort_title",   "sort_artist",    "sort_album",     "sort_album_artist",
                "composer",     "genre",          "comment",        "grouping",
                "show",         "season_number",  "episode_number", "episode_id",
                "description",  "chapter_data"}) +
           revisionOnUpdate("item_store", Kind, "NEW.item_pid",
                            {"account_id", "store_item_id", "flavor", "matched_status",
                             "redownloaded_status", "veska_id", "podcast_guid"}) +
           revisionOnUpdate(
               "item_stats", Kind, "NEW.item_pid",
               {"user_rating", "rating_changed_ms", "bookmark_ms", "bookmark_changed_ms"}) +
           revisionOnUpdate("item_artwork", Kind, "NEW.item_pid", {"sync_artwork_token"});
}

// The shown counts are the sums over all origins.
std::string sumPlays(const char* event, const char* pid) {
    return fmt::format(
        R"sql(CREATE TRIGGER play_statistics_{0} AFTER {0} ON play_statistics BEGIN
UPDATE item_stats SET (play_count, skip_count, last_played_ms, last_skipped_ms) =
    (SELECT ifnull(sum(play_count), 0), ifnull(sum(skip_count), 0),
            ifnull(max(last_played_ms), 0), ifnull(max(last_skipped_ms), 0)
     FROM play_statistics WHERE item_pid = {1})
    WHERE item_pid = {1};
END;
)sql",
        event, pid);
}

// An entry for a track that is not there (yet) is none of a revision's business.
constexpr char TrackIsThere[] = "EXISTS (SELECT 1 FROM item WHERE item_pid = NEW.item_pid) AND ";

// The moment of a change travels by itself: another's equal value may have come later.
std::string fieldChanges() {
    const std::string what = fmt::format("{} {}\nBEGIN\n{}END;\n", TrackIsThere,
                                         hasNoRevisionYet(EntityKind::Track, "NEW.item_pid"),
                                         giveRevision(EntityKind::Track, "NEW.item_pid"));
    return "CREATE TRIGGER field_change_new AFTER INSERT ON field_change\nWHEN " + what +
           "CREATE TRIGGER field_change_travels AFTER UPDATE ON field_change\n"
           "WHEN OLD.changed_ms <> NEW.changed_ms AND " +
           what;
}

std::string playStatistics() {
    constexpr EntityKind Kind = EntityKind::Track;
    constexpr char Differs[] =
        "(OLD.play_count IS NOT NEW.play_count OR OLD.skip_count IS NOT NEW.skip_count OR "
        "OLD.last_played_ms IS NOT NEW.last_played_ms OR "
        "OLD.last_skipped_ms IS NOT NEW.last_skipped_ms)";
    return sumPlays("INSERT", "NEW.item_pid") + sumPlays("UPDATE", "NEW.item_pid") +
           sumPlays("DELETE", "OLD.item_pid") +
           fmt::format(
               "CREATE TRIGGER play_statistics_new AFTER INSERT ON play_statistics\n"
               "WHEN {} {}\nBEGIN\n{}END;\n",
               TrackIsThere, hasNoRevisionYet(Kind, "NEW.item_pid"),
               giveRevision(Kind, "NEW.item_pid")) +
           fmt::format(
               "CREATE TRIGGER play_statistics_travels AFTER UPDATE ON play_statistics\n"
               "WHEN {} {} AND {}\nBEGIN\n{}END;\n",
               TrackIsThere, Differs, hasNoRevisionYet(Kind, "NEW.item_pid"),
               giveRevision(Kind, "NEW.item_pid"));
}

// A new track gets its revision from the row of item; the other rows follow it.
std::string trackLife() {
    return "CREATE TRIGGER item_new AFTER INSERT ON item\n"
           "WHEN (SELECT inserts_in_bulk FROM change_state) = 0 BEGIN\n" +
           giveRevision(EntityKind::Track, "NEW.item_pid") +
           R"sql(UPDATE row_count SET items = items + 1;
END;
CREATE TRIGGER item_gone AFTER DELETE ON item BEGIN
DELETE FROM entity_revision WHERE entity_kind = 0 AND pid = OLD.item_pid;
INSERT INTO entity_revision (entity_kind, pid, deleted, origin, sync_id, global_id, media_type,
        deleted_ms)
    SELECT 0, OLD.item_pid, 1, origin,
           ifnull((SELECT sync_id FROM item_store WHERE item_id = OLD.item_id), 0),
           ifnull((SELECT global_id FROM item_extra WHERE item_id = OLD.item_id), 0),
           OLD.media_type, max(deletion_ms, OLD.added_ms)
    FROM change_state WHERE exports_deletions <> 0;
INSERT INTO deleted_entry (entity_kind, global_id, deleted_ms, pid)
    SELECT 0, e.global_id, max(deletion_ms, OLD.added_ms), OLD.item_pid
    FROM change_state JOIN item_extra e
    WHERE exports_deletions <> 0 AND e.item_id = OLD.item_id AND e.global_id <> 0
    ON CONFLICT (entity_kind, global_id) DO UPDATE
        SET deleted_ms = max(deleted_ms, excluded.deleted_ms), pid = excluded.pid;
DELETE FROM tombstone WHERE entity_kind = 0 AND pid = OLD.item_pid;
INSERT INTO tombstone (entity_kind, pid, sync_id, global_id)
    VALUES (0, OLD.item_pid,
            ifnull((SELECT sync_id FROM item_store WHERE item_id = OLD.item_id), 0),
            ifnull((SELECT global_id FROM item_extra WHERE item_id = OLD.item_id), 0));
UPDATE container_item SET item_pid = 0, foreign_pid = OLD.item_pid,
        foreign_global_id = (SELECT global_id FROM item_extra WHERE item_id = OLD.item_id)
    WHERE item_pid = OLD.item_pid
        AND ifnull((SELECT global_id FROM item_extra WHERE item_id = OLD.item_id), 0) <> 0
        AND (SELECT kind FROM container c WHERE c.container_id = container_item.container_id) = 0;
DELETE FROM container_item WHERE item_pid = OLD.item_pid;
DELETE FROM item_extra WHERE item_id = OLD.item_id;
DELETE FROM item_store WHERE item_id = OLD.item_id;
DELETE FROM item_stats WHERE item_id = OLD.item_id;
DELETE FROM item_artwork WHERE item_id = OLD.item_id;
DELETE FROM play_statistics WHERE item_pid = OLD.item_pid;
DELETE FROM field_change WHERE item_pid = OLD.item_pid;
UPDATE row_count SET items = items - 1;
END;
)sql";
}

// Items of a playlist: the playlist gets the revision, once in a transaction however many change.
// Those of a smart playlist do not travel. An entry that is resolved, or loses its track, keeps its
// place, so that is no change of the playlist either.
std::string containerItems(const char* name, const char* event, const char* row,
                           const char* condition) {
    const std::string pid = fmt::format(
        "(SELECT container_pid FROM container WHERE container_id = {}.container_id)", row);
    return fmt::format(
        "CREATE TRIGGER container_item_{} AFTER {} ON container_item\n"
        "WHEN {}(SELECT kind FROM container WHERE container_id = {}.container_id) = 0 AND {}\n"
        "BEGIN\n{}END;\n",
        name, event, condition, row, hasNoRevisionYet(EntityKind::Playlist, pid.c_str()),
        giveRevision(EntityKind::Playlist, pid.c_str()));
}

std::string containerLife() {
    return "CREATE TRIGGER container_new AFTER INSERT ON container BEGIN\n" +
           giveRevision(EntityKind::Playlist, "NEW.container_pid") +
           R"sql(UPDATE row_count SET containers = containers + 1;
END;
CREATE TRIGGER container_gone AFTER DELETE ON container BEGIN
DELETE FROM entity_revision WHERE entity_kind = 1 AND pid = OLD.container_pid;
INSERT INTO entity_revision (entity_kind, pid, deleted, origin, sync_id, global_id, built_in_kind,
        deleted_ms)
    SELECT 1, OLD.container_pid, 1, origin, OLD.sync_id, OLD.global_id, OLD.built_in_kind,
           max(deletion_ms, OLD.added_ms)
    FROM change_state WHERE exports_deletions <> 0;
INSERT INTO deleted_entry (entity_kind, global_id, deleted_ms, pid)
    SELECT 1, OLD.global_id, max(deletion_ms, OLD.added_ms), OLD.container_pid
    FROM change_state WHERE exports_deletions <> 0 AND OLD.global_id <> 0
    ON CONFLICT (entity_kind, global_id) DO UPDATE
        SET deleted_ms = max(deleted_ms, excluded.deleted_ms), pid = excluded.pid;
DELETE FROM tombstone WHERE entity_kind = 1 AND pid = OLD.container_pid;
INSERT INTO tombstone (entity_kind, pid, sync_id, global_id)
    VALUES (1, OLD.container_pid, OLD.sync_id, OLD.global_id);
DELETE FROM container_item WHERE container_id = OLD.container_id;
UPDATE row_count SET containers = containers - 1;
END;
)sql" +
           revisionOnUpdate("container", EntityKind::Playlist, "NEW.container_pid",
                            {"name", "kind", "smart_rules", "built_in_kind", "global_id",
                             "added_ms", "name_changed_ms", "items_changed_ms"}) +
           containerItems("new", "INSERT", "NEW", "") +
           containerItems("gone", "DELETE", "OLD", "") +
           containerItems("moved", "UPDATE OF position, container_id", "NEW", "");
}

// New names put a track at another place among the others; the connection finds it one before the
// commit.
std::string placeInOrder() {
    return R"sql(CREATE TRIGGER item_renamed AFTER UPDATE OF album_pid, album_artist_pid, item_artist_pid ON item
WHEN OLD.album_pid <> NEW.album_pid OR OLD.album_artist_pid <> NEW.album_artist_pid
    OR OLD.item_artist_pid <> NEW.item_artist_pid
BEGIN UPDATE item SET album_order = 0 WHERE item_id = NEW.item_id; END;
CREATE TRIGGER item_sorted_anew AFTER UPDATE OF sort_artist, sort_album, sort_album_artist ON item_extra
WHEN OLD.sort_artist IS NOT NEW.sort_artist OR OLD.sort_album IS NOT NEW.sort_album
    OR OLD.sort_album_artist IS NOT NEW.sort_album_artist
BEGIN UPDATE item SET album_order = 0 WHERE item_id = NEW.item_id; END;
)sql";
}

// What a record holds and does not travel by itself: the track gets no revision, so the record that
// was kept with the one it has must go.
std::string dropKeptRecord(const char* name, const char* event, const char* condition,
                           const char* pid) {
    return fmt::format(
        "CREATE TRIGGER {} AFTER {}\n{}BEGIN\n"
        "UPDATE entity_revision SET record = NULL WHERE pid = {} AND record IS NOT NULL;\nEND;\n",
        name, event, condition, pid);
}

std::string dropKeptRecordOnUpdate(const char* table, const char* column) {
    return dropKeptRecord(fmt::format("{}_unkept", column).c_str(),
                          fmt::format("UPDATE OF {} ON {}", column, table).c_str(),
                          fmt::format("WHEN OLD.{0} IS NOT NEW.{0} ", column).c_str(),
                          "NEW.item_pid");
}

}  // namespace

std::string firstSchemaTriggers() {
    return placeInOrder() + trackRevisions() + fieldChanges() + playStatistics() + trackLife() +
           containerLife();
}

std::string keptRecordsSchema() {
    return R"sql(
-- Of a track that changed among few: its record as other devices are told it, but for their own
-- ids. Whoever adds to what the record of a track holds empties this column.
ALTER TABLE entity_revision ADD COLUMN record BLOB;
CREATE INDEX entity_revision_kept ON entity_revision (pid) WHERE record IS NOT NULL;
)sql" + dropKeptRecordOnUpdate("item_store", "sync_id") +
           dropKeptRecordOnUpdate("item_extra", "pending_kenning_checksum") +
           dropKeptRecordOnUpdate("item_artwork", "cloud_artwork_token") +
           dropKeptRecord("field_change_unkept", "DELETE ON field_change", "", "OLD.item_pid");
}

}  // namespace korvane
