#include "device/korvane/export/playlist_deletions.h"

#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/schema.h"

namespace korvane {

namespace {

constexpr auto Playlist = static_cast<int>(EntityKind::Playlist);

std::vector<PlaylistDeletion> deletionsAfter(common::Database& database, std::int64_t revision) {
    std::vector<PlaylistDeletion> deletions;
    auto rows = database.query(
        "SELECT pid, revision FROM entity_revision INDEXED BY entity_revision_deleted WHERE "
        "deleted <> 0 AND revision > ? AND entity_kind = ? AND built_in_kind = 0 ORDER BY revision",
        revision, Playlist);
    while (rows.step())
        deletions.push_back({rows->int64(0), rows->int64(1)});
    return deletions;
}

bool hasPlaylistChangedAfter(common::Database& database, std::int64_t revision) {
    return database.int64(
               "SELECT EXISTS (SELECT 1 FROM entity_revision NOT INDEXED WHERE revision > ? AND "
               "entity_kind = ? AND deleted = 0)",
               revision, Playlist) != 0;
}

// A row of its own takes the old one's place, so that the counter goes on.
void giveNewRevision(common::Database& database, PlaylistDeletion& deletion) {
    database.execute(
        "INSERT OR REPLACE INTO entity_revision (entity_kind, pid, deleted, origin, sync_id, "
        "global_id, media_type, built_in_kind, deleted_ms) SELECT entity_kind, pid, deleted, "
        "origin, sync_id, global_id, media_type, built_in_kind, deleted_ms FROM entity_revision "
        "WHERE revision = ?",
        deletion.revision);
    deletion.revision = database.lastInsertedRow();
}

}  // namespace

std::optional<std::vector<PlaylistDeletion>> lineUpPlaylistDeletions(Library& library,
                                                                     std::int64_t afterRevision) {
    std::vector<PlaylistDeletion> deletions;
    const bool isDone = library.change("lineUpPlaylistDeletions", [&](common::Database& database) {
        deletions = deletionsAfter(database, afterRevision);
        if (deletions.size() > 1 && hasPlaylistChangedAfter(database, deletions[1].revision))
            for (PlaylistDeletion& deletion : deletions)
                giveNewRevision(database, deletion);
        return true;
    });
    return isDone ? std::optional(std::move(deletions)) : std::nullopt;
}

}  // namespace korvane
