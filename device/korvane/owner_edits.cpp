#include "device/korvane/owner_edits.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "common/sqlite/database.h"
#include "device/korvane/change_times.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"
#include "device/korvane/play_counts.h"

namespace korvane {

namespace {

constexpr std::uint32_t MaximumStars = 5;
constexpr std::int64_t PointsPerStar = 20;

using platform::OptionalError;

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
                    "1, ?3) ON CONFLICT (item_pid, origin_uid) DO UPDATE SET {0} = "
                    "min({0} + 1, ?4), {1} = max({1}, ?3)",
                    counter, moment),
        trackPID, library.uid(), library.nowMilliseconds(), LargestPlayCount);
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
        error = notFound(
            isAmbiguous ? fmt::format("several tracks are called \"{}\"; name one by its id", name)
                        : fmt::format("there is no track \"{}\"", name));
    return found;
}

OptionalError rateTrack(Library& library, std::int64_t trackPID, std::uint32_t stars) {
    if (stars > MaximumStars)
        return refusedEdit("a rating is 0 to 5 stars");
    return rateTrackInPoints(library, trackPID, std::int64_t{stars} * PointsPerStar);
}

OptionalError rateTrackInPoints(Library& library, std::int64_t trackPID, std::int64_t points) {
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        database.execute(
            "UPDATE item_stats SET user_rating = ?, rating_changed_ms = max(?, min(?, "
            "rating_changed_ms + 1)) WHERE item_pid = ?",
            std::clamp<std::int64_t>(points, 0, MaximumStars * PointsPerStar),
            boundedMs(library.nowMilliseconds()), LatestMs, trackPID);
        return std::nullopt;
    });
}

OptionalError recordPlay(Library& library, std::int64_t trackPID) {
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        count(database, library, trackPID, "play_count", "last_played_ms");
        return std::nullopt;
    });
}

OptionalError recordSkip(Library& library, std::int64_t trackPID) {
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        count(database, library, trackPID, "skip_count", "last_skipped_ms");
        return std::nullopt;
    });
}

OptionalError setBookmark(Library& library, std::int64_t trackPID, std::uint64_t milliseconds) {
    return editTrackAsOwner(library, trackPID, [&](common::Database& database) -> OptionalError {
        database.execute(
            "UPDATE item_stats SET bookmark_ms = ?, bookmark_changed_ms = max(?, min(?, "
            "bookmark_changed_ms + 1)) WHERE item_pid = ?",
            static_cast<std::int64_t>(std::min<std::uint64_t>(milliseconds, INT64_MAX)),
            boundedMs(library.nowMilliseconds()), LatestMs, trackPID);
        return std::nullopt;
    });
}

}  // namespace korvane
