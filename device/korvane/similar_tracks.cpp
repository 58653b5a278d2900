#include "device/korvane/similar_tracks.h"

#include <fmt/format.h>

#include <algorithm>

#include "common/kenning/similarities.h"
#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/library.h"
#include "device/korvane/owner_edit.h"

namespace korvane {

namespace {

using platform::OptionalError;

// More than any answer has.
constexpr std::int64_t LargestNumber = 1'000'000;

struct Settings {
    std::size_t most = common::KenningMaximumSimilar;
    std::size_t least = 0;
};

// Hosts' values are stored as they come.
std::size_t numberIn(const platform::Value& value, std::size_t otherwise) {
    if (!value.isNumber())
        return otherwise;
    const std::int64_t number = value.int64Value();
    return number > 0 && number <= LargestNumber ? static_cast<std::size_t>(number) : otherwise;
}

OptionalError readSettings(common::Database& database, Settings& settings) {
    auto row = database.query(
        "SELECT version, default_num_results, min_num_results FROM kenning_config WHERE id = 0");
    if (!row.step())
        return std::nullopt;
    const platform::Value version = row->value(0);
    if (!version.isNull() &&
        !(version.isNumber() && version.int64Value() == common::KenningVersion))
        return refusedEdit(
            fmt::format("the device's recommendation data are of version {}, which it does not "
                        "understand; a sync with a host of its own age replaces them",
                        version.description()));
    settings.most = numberIn(row->value(1), settings.most);
    settings.least = numberIn(row->value(2), settings.least);
    return std::nullopt;
}

OptionalError readSimilarities(common::Database& database, std::int64_t trackPID,
                               std::vector<common::KenningSimilarity>& similarities) {
    auto row = database.query(
        "SELECT ks.data FROM item_extra e JOIN kenning_similarities ks ON ks.kenning_id = "
        "e.kenning_id WHERE e.item_pid = ?",
        trackPID);
    if (!row.step())
        return notFound(
            "the device has no recommendation data for this track; `orlith sync` without "
            "--no-kenning sends them, for music and music videos");
    auto decoded = common::decodeKenningSimilarities(row->blob(0));
    if (!decoded)
        return refusedEdit(
            "the recommendation data of this track are damaged on the device; `orlith check "
            "--repair` takes them away, and the next sync brings them again");
    similarities = std::move(*decoded);
    return std::nullopt;
}

void addTracksOf(common::Database& database, const common::KenningSimilarity& similarity,
                 std::int64_t trackPID, std::vector<SimilarTrack>& tracks) {
    auto rows = database.query(
        "SELECT e.item_pid, e.title, ar.name, al.name FROM item_extra e JOIN item i USING "
        "(item_id) "
        "LEFT JOIN item_artist ar USING (item_artist_pid) LEFT JOIN album al USING (album_pid) "
        "WHERE e.kenning_id = ? AND e.item_pid <> ? ORDER BY e.item_id",
        similarity.kenningId, trackPID);
    while (rows.step())
        tracks.push_back({rows->int64(0), std::string(rows->text(1)), std::string(rows->text(2)),
                          std::string(rows->text(3)), similarity.score});
}

}  // namespace

OptionalError findSimilarTracks(Library& library, std::int64_t trackPID,
                                std::optional<std::uint32_t> count, SimilarAnswer& answer) {
    OptionalError error;
    Settings settings;
    try {
        library.connections().read([&](common::Database& database) {
            std::vector<common::KenningSimilarity> similarities;
            error = readSettings(database, settings);
            if (!error)
                error = readSimilarities(database, trackPID, similarities);
            for (const common::KenningSimilarity& similarity : similarities)
                addTracksOf(database, similarity, trackPID, answer.tracks);
            return true;
        });
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    answer.available = answer.tracks.size();
    answer.minimum = settings.least;
    if (count)
        answer.tracks.resize(std::min<std::size_t>(answer.available, *count));
    else if (answer.available < settings.least)
        answer.tracks.clear();
    else
        answer.tracks.resize(std::min(answer.available, settings.most));
    return error;
}

}  // namespace korvane
