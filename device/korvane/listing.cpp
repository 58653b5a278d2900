#include "device/korvane/listing.h"

#include <algorithm>
#include <array>

#include "common/chapters/chapters.h"
#include "common/sqlite/database.h"
#include "device/korvane/library.h"
#include "device/korvane/row_store.h"
#include "device/korvane/schema.h"
#include "device/korvane/smart_language.h"
#include "device/korvane/track_location.h"

namespace korvane {

namespace {

using platform::ValueView;

// Of the statement below; the last four are the order.
enum Column : std::size_t {
    PersistentID,
    SyncID,
    GlobalID,
    Title,
    Artist,
    Album,
    DiscNumber,
    TrackNumber,
    MediaType,
    Folder,
    FileName,
    Size,
    HasArtwork,
    HasKenning,
    Chapters,
    Rating,
    PlayCount,
    ContentHash,
    HostPath,
    Sources,
    ColumnCount
};

constexpr char TrackRows[] =
    "SELECT i.item_pid, s.sync_id, e.global_id, e.title, ar.name, al.name, i.disc_number, "
    "i.track_number, i.media_type, bl.path, e.location_file_name, e.total_size, "
    "w.best_artwork_token <> '' AND EXISTS (SELECT 1 FROM artwork a WHERE a.artwork_token = "
    "w.best_artwork_token), e.kenning_id IS NOT NULL AND EXISTS (SELECT 1 FROM kenning_metadata km "
    "WHERE km.kenning_id = e.kenning_id), e.chapter_data, st.user_rating, st.play_count, "
    "e.content_hash, e.host_path, i.sources, i.album_artist_order, i.album_order FROM item i NOT "
    "INDEXED CROSS JOIN item_extra e ON e.item_id = i.item_id CROSS JOIN item_store s ON s.item_id "
    "= i.item_id CROSS JOIN item_stats st ON st.item_id = i.item_id CROSS JOIN item_artwork w ON "
    "w.item_id = i.item_id LEFT JOIN item_artist ar ON ar.item_artist_pid = i.item_artist_pid LEFT "
    "JOIN album al ON al.album_pid = i.album_pid LEFT JOIN base_location bl ON "
    "bl.base_location_id = i.base_location_id";

struct Place {
    std::array<std::int64_t, 4> keys{};
    std::uint32_t row = 0;
    auto operator<=>(const Place&) const = default;
};

std::int64_t chapterCount(const ValueView& data) {
    const auto bytes = data.string();
    const auto chapters =
        common::decodeChapters({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    return chapters ? static_cast<std::int64_t>(chapters->size()) : 0;
}

std::vector<Place> readTracks(common::Database& database, RowStore& rows) {
    std::vector<Place> places;
    auto query = database.query(TrackRows);
    while (query.step()) {
        const auto number = static_cast<std::uint32_t>(rows.size());
        const auto row = rows.add();
        for (std::size_t column = 0; column < ColumnCount; ++column) {
            const ValueView value = query->view(static_cast<int>(column));
            row[column] = column == Chapters && !value.isNull() ? ValueView(chapterCount(value))
                                                                : rows.keep(value);
        }
        places.push_back({{query->int64(ColumnCount), query->int64(ColumnCount + 1),
                           row[DiscNumber].int64Value(), row[TrackNumber].int64Value()},
                          number});
    }
    return places;
}

std::optional<std::string_view> text(const ValueView& value) {
    return value.isNull() ? std::nullopt : std::optional(value.string());
}

ListedTrack listed(std::span<const ValueView> row) {
    ListedTrack track;
    track.persistentID = row[PersistentID].int64Value();
    track.syncID = row[SyncID].int64Value();
    track.globalID = row[GlobalID].int64Value();
    track.title = text(row[Title]);
    track.artist = text(row[Artist]);
    track.album = text(row[Album]);
    track.discNumber = static_cast<std::uint32_t>(row[DiscNumber].int64Value());
    track.trackNumber = static_cast<std::uint32_t>(row[TrackNumber].int64Value());
    track.mediaType = static_cast<std::uint32_t>(row[MediaType].int64Value());
    if (!row[Folder].string().empty())
        track.path.append(MediaDirectory)
            .append(row[Folder].string())
            .append("/")
            .append(row[FileName].string());
    track.size = static_cast<std::uint64_t>(row[Size].int64Value());
    track.hasArtwork = row[HasArtwork].boolValue();
    track.hasKenning = row[HasKenning].boolValue();
    track.chapters = static_cast<std::uint32_t>(row[Chapters].int64Value());
    track.rating = static_cast<std::uint32_t>(row[Rating].int64Value());
    track.playCount = static_cast<std::uint64_t>(row[PlayCount].int64Value());
    track.contentHash = row[ContentHash].string();
    track.hostPath = text(row[HostPath]);
    track.isFromHost = (row[Sources].int64Value() & sourceBit(KV3SourceHostData)) != 0;
    return track;
}

std::vector<std::int64_t> entriesOf(common::Database& database, std::int64_t containerID) {
    std::vector<std::int64_t> tracks;
    auto entries = database.query(
        "SELECT item_pid FROM container_item WHERE container_id = ? AND item_pid <> 0 ORDER BY "
        "position",
        containerID);
    while (entries.step())
        tracks.push_back(entries->int64(0));
    return tracks;
}

void sayRules(std::span<const std::uint8_t> stored, ListedPlaylist& playlist) {
    if (const auto rules = decodeSmartRules(stored)) {
        playlist.rules = textOfSmartRules(*rules);
        playlist.limit = textOfSmartLimit(*rules);
    }
}

}  // namespace

void listTracks(Library& library, const std::function<bool(const ListedTrack&)>& callback) {
    RowStore rows(ColumnCount);
    std::vector<Place> places;
    if (!library.read("listTracks", [&](common::Database& database) {
            places = readTracks(database, rows);
            return true;
        }))
        return;
    std::ranges::sort(places);
    for (const Place& place : places)
        if (!callback(listed(rows.row(place.row))))
            return;
}

void listPlaylists(Library& library, const std::function<bool(const ListedPlaylist&)>& callback) {
    std::vector<ListedPlaylist> playlists;
    if (!library.read("listPlaylists", [&](common::Database& database) {
            auto rows = database.query(
                "SELECT container_id, container_pid, sync_id, global_id, name, kind, sources, "
                "built_in_kind, smart_rules FROM container ORDER BY container_id");
            while (rows.step()) {
                playlists.push_back(
                    {rows->int64(1), rows->int64(2), rows->int64(3), std::string(rows->text(4)),
                     rows->int64(5) == static_cast<int>(ContainerKind::Smart),
                     entriesOf(database, rows->int64(0)),
                     (rows->int64(6) & sourceBit(KV3SourceHostData)) != 0, rows->int64(7) != 0});
                if (playlists.back().isSmart)
                    sayRules(rows->blob(8), playlists.back());
            }
            return true;
        }))
        return;
    for (const ListedPlaylist& playlist : playlists)
        if (!callback(playlist))
            return;
}

LibraryCounts libraryCounts(Library& library) {
    LibraryCounts counts;
    library.read("libraryCounts", [&](common::Database& database) {
        auto row = database.query("SELECT items, containers FROM row_count");
        row.step();
        counts.tracks = static_cast<std::uint64_t>(row->int64(0));
        counts.playlists = static_cast<std::uint64_t>(row->int64(1));
        counts.missingFiles = static_cast<std::uint64_t>(database.int64(
            "SELECT count(*) FROM item INDEXED BY item_without_file WHERE base_location_id = 0 AND "
            "sources & ? <> 0",
            sourceBit(KV3SourceHostData) | sourceBit(KV3SourceSync)));
        return true;
    });
    return counts;
}

bool lacksFiles(Library& library) {
    bool isMissing = false;
    library.read("lacksFiles", [&](common::Database& database) {
        isMissing = !tracksWithoutTheirFile(database, library.configuration().files).empty();
        return true;
    });
    return isMissing;
}

std::vector<std::string> filesHeldByHostAlone(Library& library) {
    std::vector<std::string> paths;
    library.read("filesHeldByHostAlone", [&](common::Database& database) {
        auto rows = database.query(
            "SELECT ?1 || bl.path || '/' || e.location_file_name FROM item i NOT INDEXED CROSS "
            "JOIN "
            "item_extra e ON e.item_id = i.item_id JOIN base_location bl ON bl.base_location_id = "
            "i.base_location_id JOIN item_store s ON s.item_id = i.item_id WHERE i.sources = ?2 "
            "AND "
            "i.base_location_id BETWEEN 1 AND ?3 - 1 AND i.needs_restore = 0 AND "
            "ifnull(s.veska_id, 0) = 0",
            MediaDirectory, sourceBit(KV3SourceHostData), CloudAssetsLocation);
        while (rows.step())
            paths.emplace_back(rows->text(0));
        return true;
    });
    return paths;
}

}  // namespace korvane
