#include "device/korvane/owner_edits.h"

#include <fmt/format.h>

#include <charconv>

#include "common/random_id.h"
#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/identifiers.h"
#include "device/korvane/library.h"
#include "device/korvane/schema.h"
#include "device/korvane/track_deletion.h"

namespace korvane {

namespace {

constexpr std::uint32_t MaximumStars = 5;
constexpr int PointsPerStar = 20;

using platform::Error;
using platform::OptionalError;

Error refused(const std::string& text) {
    return {LibraryErrorDomain, LibraryErrorRefused, text};
}

// Runs an edit in a transaction; the block answers with what is wrong.
OptionalError edit(Library& library, const std::function<OptionalError(common::Database&)>& block) {
    OptionalError error;
    try {
        library.connections().write([&](common::Database& database) {
            error = block(database);
            return !error;
        });
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    return error;
}

OptionalError editTrack(Library& library, std::int64_t trackPID,
                        const std::function<void(common::Database&)>& block) {
    return edit(library, [&](common::Database& database) -> OptionalError {
        if (database.int64("SELECT count(*) FROM item WHERE item_pid = ?", trackPID) == 0)
            return refused("there is no such track");
        block(database);
        return std::nullopt;
    });
}

OptionalError editPlaylist(Library& library, std::int64_t playlistPID,
                           const std::function<OptionalError(common::Database&)>& block) {
    return edit(library, [&](common::Database& database) -> OptionalError {
        if (database.int64("SELECT count(*) FROM container WHERE container_pid = ?", playlistPID) ==
            0)
            return refused("there is no such playlist");
        return block(database);
    });
}

std::optional<std::int64_t> asNumber(const std::string& text) {
    std::int64_t number = 0;
    const auto end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    return failure == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

// The track of one query, when there is exactly one.
std::optional<FoundTrack> onlyTrack(common::Query rows, bool& isAmbiguous) {
    if (!rows.step())
        return std::nullopt;
    FoundTrack found{rows->int64(0), std::string(rows->text(1))};
    isAmbiguous = rows.step();
    return isAmbiguous ? std::nullopt : std::optional(found);
}

std::optional<FoundTrack> lookUp(common::Database& database, const std::string& name,
                                 bool& isAmbiguous) {
    if (const auto number = asNumber(name)) {
        for (const char* sql :
             {"SELECT item_pid, title FROM item_extra WHERE item_pid = ? LIMIT 2",
              "SELECT s.item_pid, e.title FROM item_store s JOIN item_extra e ON e.item_id = "
              "s.item_id WHERE s.sync_id = ? AND s.sync_id <> 0 LIMIT 2"})
            if (auto found = onlyTrack(database.query(sql, *number), isAmbiguous))
                return found;
    }
    return onlyTrack(
        database.query("SELECT item_pid, title FROM item_extra WHERE title = ? LIMIT 2", name),
        isAmbiguous);
}

void count(common::Database& database, const Library& library, std::int64_t trackPID,
           const char* counter, const char* moment) {
    database.execute(
        fmt::format("INSERT INTO play_statistics (item_pid, origin_uid, {0}, {1}) VALUES (?1, ?2, "
                    "1, ?3) ON CONFLICT (item_pid, origin_uid) DO UPDATE SET {0} = {0} + 1, {1} = "
                    "max({1}, ?3)",
                    counter, moment),
        trackPID, library.libraryUID(), library.nowMilliseconds());
}

OptionalError appendEntries(common::Database& database, std::int64_t playlistPID,
                            const std::vector<std::int64_t>& trackPIDs) {
    auto row = database.query(
        "SELECT container_id, kind, (SELECT ifnull(max(position), -1) FROM container_item ci WHERE "
        "ci.container_id = c.container_id) FROM container c WHERE container_pid = ?",
        playlistPID);
    row.step();
    if (row->int64(1) == static_cast<int>(ContainerKind::Smart))
        return refused("a smart playlist is filled by its rules");
    std::int64_t position = row->int64(2);
    for (const std::int64_t pid : trackPIDs) {
        if (database.int64("SELECT count(*) FROM item WHERE item_pid = ?", pid) == 0)
            return refused(fmt::format("there is no track {}", pid));
        database.execute(
            "INSERT INTO container_item (container_id, position, item_pid) VALUES (?, ?, ?)",
            row->int64(0), ++position, pid);
    }
    return std::nullopt;
}

}  // namespace

std::optional<FoundTrack> findTrack(Library& library, const std::string& name,
                                    OptionalError& error) {
    std::optional<FoundTrack> found;
    bool isAmbiguous = false;
    library.read("findTrack", [&](common::Database& database) {
        found = lookUp(database, name, isAmbiguous);
        return true;
    });
    if (!found)
        error = refused(isAmbiguous ? "several tracks have this title; name one by its number"
                                    : "there is no such track");
    return found;
}

OptionalError rateTrack(Library& library, std::int64_t trackPID, std::uint32_t stars) {
    if (stars > MaximumStars)
        return refused("a rating is 0 to 5 stars");
    return editTrack(library, trackPID, [&](common::Database& database) {
        database.execute(
            "UPDATE item_stats SET user_rating = ?, rating_changed_ms = ? WHERE item_pid = ?",
            static_cast<int>(stars) * PointsPerStar, library.nowMilliseconds(), trackPID);
    });
}

OptionalError recordPlay(Library& library, std::int64_t trackPID) {
    return editTrack(library, trackPID, [&](common::Database& database) {
        count(database, library, trackPID, "play_count", "last_played_ms");
    });
}

OptionalError recordSkip(Library& library, std::int64_t trackPID) {
    return editTrack(library, trackPID, [&](common::Database& database) {
        count(database, library, trackPID, "skip_count", "last_skipped_ms");
    });
}

OptionalError setBookmark(Library& library, std::int64_t trackPID, std::uint64_t milliseconds) {
    return editTrack(library, trackPID, [&](common::Database& database) {
        database.execute(
            "UPDATE item_stats SET bookmark_ms = ?, bookmark_changed_ms = ? WHERE item_pid = ?",
            static_cast<std::int64_t>(milliseconds), library.nowMilliseconds(), trackPID);
    });
}

std::int64_t createPlaylist(Library& library, const std::string& name, OptionalError& error) {
    std::int64_t pid = 0;
    error = edit(library, [&](common::Database& database) -> OptionalError {
        pid = newPersistentID(database);
        database.execute(
            "INSERT INTO container (container_pid, name, global_id, sources, changed_ms) VALUES "
            "(?, ?, ?, ?, ?)",
            pid, name, common::randomPositiveId(), OwnerSourceBit, library.nowMilliseconds());
        return std::nullopt;
    });
    return error ? 0 : pid;
}

OptionalError addToPlaylist(Library& library, std::int64_t playlistPID,
                            const std::vector<std::int64_t>& trackPIDs) {
    return editPlaylist(library, playlistPID, [&](common::Database& database) -> OptionalError {
        if (auto error = appendEntries(database, playlistPID, trackPIDs))
            return error;
        database.execute("UPDATE container SET changed_ms = ? WHERE container_pid = ?",
                         library.nowMilliseconds(), playlistPID);
        return std::nullopt;
    });
}

OptionalError renamePlaylist(Library& library, std::int64_t playlistPID, const std::string& name) {
    return editPlaylist(library, playlistPID, [&](common::Database& database) -> OptionalError {
        database.execute("UPDATE container SET name = ?, changed_ms = ? WHERE container_pid = ?",
                         name, library.nowMilliseconds(), playlistPID);
        return std::nullopt;
    });
}

OptionalError removePlaylist(Library& library, std::int64_t playlistPID) {
    return editPlaylist(library, playlistPID, [&](common::Database& database) -> OptionalError {
        deletePlaylist(database, playlistPID, DeletionReach::Everywhere);
        return std::nullopt;
    });
}

}  // namespace korvane
