#include "device/korvane/import/play_merge.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <tuple>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/change_times.h"
#include "device/korvane/import/change_origin.h"
#include "device/korvane/import/record_columns.h"
#include "device/korvane/play_counts.h"

namespace korvane {

namespace {

constexpr std::int64_t LargestRating = 100;
// Longer than any uid that a library or host gives itself.
constexpr std::size_t LongestUID = 256;

constexpr char Grows[] =
    "SELECT NOT EXISTS (SELECT 1 FROM play_statistics WHERE item_pid = ?1 AND origin_uid = ?2"
    " AND play_count >= ?3 AND skip_count >= ?4 AND last_played_ms >= ?5"
    " AND last_skipped_ms >= ?6)";
constexpr char Rows[] =
    "SELECT origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms"
    " FROM play_statistics WHERE item_pid = ?";
constexpr char Write[] =
    "INSERT INTO play_statistics"
    " (item_pid, origin_uid, play_count, skip_count, last_played_ms, last_skipped_ms)"
    " VALUES (?1, ?2, ?3, ?4, ?5, ?6)"
    " ON CONFLICT (item_pid, origin_uid) DO UPDATE SET"
    " play_count = max(play_count, excluded.play_count),"
    " skip_count = max(skip_count, excluded.skip_count),"
    " last_played_ms = max(last_played_ms, excluded.last_played_ms),"
    " last_skipped_ms = max(last_skipped_ms, excluded.last_skipped_ms)";

std::int64_t count(std::uint64_t value) {
    return std::min(columnNumber(value), LargestPlayCount);
}

bool isPlausibleOrigin(std::string_view uid) {
    return !uid.empty() && uid.size() <= LongestUID;
}

void bindCounts(common::Query& query, std::int64_t pid, const qorx::PlayStatistics& plays) {
    query->bindAllBorrowed(pid, plays.origin_uid(), count(plays.play_count()),
                           count(plays.skip_count()), boundedMs(plays.last_played_ms()),
                           boundedMs(plays.last_skipped_ms()));
}

}  // namespace

void mergeOwnerValues(const qorx::Track& record, IncomingTrack& into) {
    if (record.has_rating()) {
        const std::int64_t value = std::min<std::int64_t>(record.rating().value(), LargestRating);
        const std::int64_t changed = boundedMs(record.rating().changed_ms());
        if (std::tie(changed, value) > std::tie(into.ratingChangedMs, into.rating)) {
            into.rating = value;
            into.ratingChangedMs = changed;
        }
    }
    if (record.has_bookmark()) {
        const std::int64_t position = columnNumber(record.bookmark().position_ms());
        const std::int64_t changed = boundedMs(record.bookmark().changed_ms());
        if (std::tie(changed, position) > std::tie(into.bookmarkChangedMs, into.bookmarkMs)) {
            into.bookmarkMs = position;
            into.bookmarkChangedMs = changed;
        }
    }
}

bool holdsMoreOwnerValues(const IncomingTrack& track, const qorx::Track& record) {
    IncomingTrack sent;
    mergeOwnerValues(record, sent);
    return std::tie(track.rating, track.ratingChangedMs, track.bookmarkMs,
                    track.bookmarkChangedMs) !=
           std::tie(sent.rating, sent.ratingChangedMs, sent.bookmarkMs, sent.bookmarkChangedMs);
}

PlayMerge::PlayMerge(common::Database& database, ChangeOrigin& origin)
    : _origin(origin),
      _grows(database.prepare(Grows)),
      _write(database.prepare(Write)),
      _rows(database.prepare(Rows)) {}

bool PlayMerge::holdsMore(std::int64_t pid, const qorx::Track& record) {
    // A record may name an origin more than once.
    using Counts = std::array<std::int64_t, 4>;
    std::map<std::string_view, Counts> sent;
    for (const qorx::PlayStatistics& plays : record.plays()) {
        auto& counts = sent[plays.origin_uid()];
        counts = {std::max(counts[0], count(plays.play_count())),
                  std::max(counts[1], count(plays.skip_count())),
                  std::max(counts[2], boundedMs(plays.last_played_ms())),
                  std::max(counts[3], boundedMs(plays.last_skipped_ms()))};
    }
    bool holdsMore = false;
    _rows->bindAll(pid);
    while (!holdsMore && _rows.step()) {
        const auto found = sent.find(_rows->text(0));
        const Counts held = {_rows->int64(1), _rows->int64(2), _rows->int64(3), _rows->int64(4)};
        // A row of zeros is none: it does not travel.
        holdsMore = found == sent.end() ? held != Counts{} : found->second != held;
    }
    _rows->reset();
    return holdsMore;
}

void PlayMerge::merge(std::int64_t pid, const qorx::Track& record) {
    for (const qorx::PlayStatistics& plays : record.plays()) {
        if (isPlausibleOrigin(plays.origin_uid()) && grows(pid, plays)) {
            _origin.aboutToChange();
            write(pid, plays);
        }
    }
}

void PlayMerge::add(std::int64_t pid, const qorx::Track& record) {
    for (const qorx::PlayStatistics& plays : record.plays()) {
        if (isPlausibleOrigin(plays.origin_uid())) {
            write(pid, plays);
        }
    }
}

bool PlayMerge::grows(std::int64_t pid, const qorx::PlayStatistics& plays) {
    bindCounts(_grows, pid, plays);
    _grows.step();
    const bool grows = _grows->int64(0) != 0;
    _grows->reset();
    return grows;
}

void PlayMerge::write(std::int64_t pid, const qorx::PlayStatistics& plays) {
    bindCounts(_write, pid, plays);
    _write.run();
}

}  // namespace korvane
