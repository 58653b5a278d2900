// What the owner does to playlists.
#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "common/random_id.h"
#include "common/sqlite/database.h"
#include "device/korvane/change_times.h"
#include "device/korvane/identifiers.h"
#include "device/korvane/import/playlist_entries.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_fill.h"
#include "device/korvane/smart_language.h"
#include "device/korvane/track_deletion.h"

namespace korvane {

using platform::OptionalError;

namespace {

constexpr std::size_t LongestName = 4096;
// As many as a record holds.
constexpr std::size_t MostEntries = 1'000'000;

using Entries = std::vector<PlaylistEntry>;

OptionalError checkName(const std::string& name) {
    if (name.empty())
        return refusedEdit("a playlist needs a name");
    if (!isPlainText(name, LongestName))
        return refusedEdit("this is no name for a playlist");
    return std::nullopt;
}

// Edits the entries of a plain playlist.
OptionalError editEntries(Library& library, std::int64_t playlistPID,
                          const std::function<OptionalError(common::Database&, Entries&)>& edit) {
    return editPlaylistAsOwner(
        library, playlistPID, [&](common::Database& database) -> OptionalError {
            const std::int64_t containerID = database.int64(
                "SELECT container_id FROM container WHERE container_pid = ? AND kind = ?",
                playlistPID, static_cast<int>(ContainerKind::Plain));
            if (containerID == 0)
                return refusedEdit("a smart playlist is filled by its rules");
            Entries entries = playlistEntries(database, containerID);
            if (auto error = edit(database, entries))
                return error;
            if (writePlaylistEntries(database, containerID, entries, [] {}))
                database.execute(
                    "UPDATE container SET items_changed_ms = max(?, min(?, items_changed_ms + 1)) "
                    "WHERE container_id = ?",
                    boundedMs(library.nowMilliseconds()), LatestMs, containerID);
            return std::nullopt;
        });
}

// The entry of the track at a place; end: there is none.
Entries::iterator entryAt(Entries& entries, std::size_t place) {
    for (auto entry = entries.begin(); entry != entries.end(); ++entry)
        if (entry->itemPID != 0 && place-- == 0)
            return entry;
    return entries.end();
}

std::size_t tracksIn(const Entries& entries) {
    return static_cast<std::size_t>(
        std::ranges::count_if(entries, [](const auto& entry) { return entry.itemPID != 0; }));
}

OptionalError addEntries(common::Database& database, Entries& entries,
                         const std::vector<std::int64_t>& trackPIDs, Entries::iterator before) {
    Entries added;
    for (const std::int64_t pid : trackPIDs) {
        if (database.int64("SELECT count(*) FROM item WHERE item_pid = ?", pid) == 0)
            return notFound(fmt::format("there is no track {}", pid));
        added.push_back({pid, 0, 0, 0});
    }
    entries.insert(before, added.begin(), added.end());
    if (entries.size() > MostEntries)
        return refusedEdit(fmt::format("a playlist holds at most {} tracks", MostEntries));
    return std::nullopt;
}

platform::Error noSuchPlace(std::size_t place) {
    return refusedEdit(fmt::format("the playlist has no track at place {}", place + 1));
}

}  // namespace

std::optional<FoundPlaylist> findPlaylist(Library& library, const std::string& name,
                                          OptionalError& error) {
    std::vector<FoundPlaylist> found;
    library.read("findPlaylist", [&](common::Database& database) {
        for (const char* sql : {"SELECT container_pid, name FROM container WHERE "
                                "CAST(container_pid AS TEXT) = ?",
                                "SELECT container_pid, name FROM container WHERE name = ? LIMIT "
                                "2"}) {
            auto rows = database.query(sql, name);
            while (rows.step())
                found.push_back({rows->int64(0), std::string(rows->text(1))});
            if (!found.empty())
                break;
        }
        return true;
    });
    if (found.size() == 1)
        return found.front();
    error = notFound(
        found.empty()
            ? fmt::format("there is no playlist \"{}\"", name)
            : fmt::format("several playlists are called \"{}\"; name one by its id", name));
    return std::nullopt;
}

std::int64_t createPlaylist(Library& library, const std::string& name, OptionalError& error,
                            const std::vector<std::int64_t>& trackPIDs) {
    error = checkName(name);
    if (error)
        return 0;
    std::int64_t pid = 0;
    error = editAsOwner(library, [&](common::Database& database) -> OptionalError {
        pid = newPersistentID(database);
        database.execute(
            "INSERT INTO container (container_pid, name, global_id, sources, added_ms, "
            "name_changed_ms, items_changed_ms) VALUES (?1, ?2, ?3, ?4, ?5, ?5, ?5)",
            pid, name, common::randomPositiveId(), OwnerSourceBit, library.nowMilliseconds());
        const std::int64_t containerID = database.lastInsertedRow();
        Entries entries;
        if (auto refused = addEntries(database, entries, trackPIDs, entries.end()))
            return refused;
        writePlaylistEntries(database, containerID, entries, [] {});
        return std::nullopt;
    });
    return error ? 0 : pid;
}

std::int64_t createSmartPlaylist(Library& library, const std::string& name,
                                 const std::string& rules, const std::string& limit,
                                 OptionalError& error) {
    error = checkName(name);
    if (error)
        return 0;
    const auto understood = smartRulesOfText(rules, limit, error);
    if (!understood)
        return 0;
    const std::int64_t nowMs = library.nowMilliseconds();
    std::int64_t pid = 0;
    error = editAsOwner(library, [&](common::Database& database) -> OptionalError {
        pid = newPersistentID(database);
        database.execute(
            "INSERT INTO container (container_pid, name, kind, smart_rules, global_id, sources, "
            "added_ms, name_changed_ms, items_changed_ms) "
            "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?7, ?7)",
            pid, name, static_cast<int>(ContainerKind::Smart),
            encodeSmartRules(*understood).value(), common::randomPositiveId(), OwnerSourceBit,
            nowMs);
        fillSmartPlaylists(database, nowMs / 1000);
        return std::nullopt;
    });
    return error ? 0 : pid;
}

OptionalError renamePlaylist(Library& library, std::int64_t playlistPID, const std::string& name) {
    if (auto error = checkName(name))
        return error;
    return editPlaylistAsOwner(
        library, playlistPID, [&](common::Database& database) -> OptionalError {
            database.execute(
                "UPDATE container SET name = ?, name_changed_ms = max(?, min(?, name_changed_ms + "
                "1)) WHERE container_pid = ?",
                name, boundedMs(library.nowMilliseconds()), LatestMs, playlistPID);
            return std::nullopt;
        });
}

OptionalError removePlaylist(Library& library, std::int64_t playlistPID) {
    return editPlaylistAsOwner(
        library, playlistPID, [&](common::Database& database) -> OptionalError {
            deletePlaylist(database, playlistPID,
                           DeletionReach::everywhere(library.nowMilliseconds()));
            return std::nullopt;
        });
}

OptionalError addToPlaylist(Library& library, std::int64_t playlistPID,
                            const std::vector<std::int64_t>& trackPIDs,
                            std::optional<std::size_t> place) {
    return editEntries(library, playlistPID,
                       [&](common::Database& database, Entries& entries) -> OptionalError {
                           if (place && *place > tracksIn(entries))
                               return noSuchPlace(*place);
                           return addEntries(database, entries, trackPIDs,
                                             place ? entryAt(entries, *place) : entries.end());
                       });
}

OptionalError removeFromPlaylist(Library& library, std::int64_t playlistPID, std::size_t place) {
    return editEntries(library, playlistPID,
                       [&](common::Database&, Entries& entries) -> OptionalError {
                           const auto entry = entryAt(entries, place);
                           if (entry == entries.end())
                               return noSuchPlace(place);
                           entries.erase(entry);
                           return std::nullopt;
                       });
}

OptionalError removeTracksFromPlaylist(Library& library, std::int64_t playlistPID,
                                       const std::vector<std::int64_t>& trackPIDs) {
    return editEntries(
        library, playlistPID, [&](common::Database&, Entries& entries) -> OptionalError {
            const std::set<std::int64_t> leaving(trackPIDs.begin(), trackPIDs.end());
            std::set<std::int64_t> left;
            std::erase_if(entries, [&](const PlaylistEntry& entry) {
                return leaving.contains(entry.itemPID) && (left.insert(entry.itemPID), true);
            });
            if (left.size() < leaving.size())
                return notFound("not all of these tracks are in the playlist");
            return std::nullopt;
        });
}

OptionalError moveInPlaylist(Library& library, std::int64_t playlistPID, std::size_t from,
                             std::size_t to) {
    return editEntries(library, playlistPID,
                       [&](common::Database&, Entries& entries) -> OptionalError {
                           const auto entry = entryAt(entries, from);
                           const auto target = entryAt(entries, to);
                           if (entry == entries.end() || target == entries.end())
                               return noSuchPlace(entry == entries.end() ? from : to);
                           // What lies between moves by one place.
                           if (entry < target)
                               std::rotate(entry, entry + 1, target + 1);
                           else
                               std::rotate(target, entry, entry + 1);
                           return std::nullopt;
                       });
}

}  // namespace korvane
