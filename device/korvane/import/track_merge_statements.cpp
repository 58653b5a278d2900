#include "device/korvane/import/track_merge_statements.h"

#include <fmt/format.h>

#include <string_view>
#include <tuple>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/import/names.h"
#include "device/korvane/import/play_merge.h"
#include "device/korvane/import/record_columns.h"
#include "device/korvane/import/track_statements.h"

namespace korvane {

namespace {

// The columns of recordTables(), counted through.
struct CountedColumn {
    const RecordTable* table;
    const RecordColumn* column;
};

const std::vector<CountedColumn>& countedColumns() {
    static const std::vector<CountedColumn> columns = [] {
        std::vector<CountedColumn> all;
        for (const RecordTable& table : recordTables()) {
            for (const RecordColumn& column : table.columns) {
                all.push_back({&table, &column});
            }
        }
        return all;
    }();
    return columns;
}

constexpr std::size_t AlbumArtist = 0;
constexpr std::size_t Album = 1;
constexpr std::size_t Artist = 2;
constexpr int NameFields[] = {qorx::Track::kAlbumArtistFieldNumber, qorx::Track::kAlbumFieldNumber,
                              qorx::Track::kArtistFieldNumber};

// The number among NameFields, or absent: the column holds the value itself.
std::optional<std::size_t> nameOf(const RecordColumn& column) {
    for (std::size_t name = 0; name < std::size(NameFields); ++name) {
        if (column.field == NameFields[name]) {
            return name;
        }
    }
    return std::nullopt;
}

// Of two ids that mean one thing, all keep the same.
std::int64_t largerID(std::int64_t a, std::int64_t b) {
    return static_cast<std::uint64_t>(a) < static_cast<std::uint64_t>(b) ? b : a;
}

auto ownerValues(const IncomingTrack& track) {
    return std::tuple(track.rating, track.ratingChangedMs, track.bookmarkMs,
                      track.bookmarkChangedMs);
}

}  // namespace

TrackMergeStatements::TrackMergeStatements(common::Database& database)
    : _database(database),
      _moments(database.prepare("SELECT field, changed_ms FROM field_change WHERE item_pid = ?")),
      _names(database.prepare(
          "SELECT ifnull((SELECT name FROM album_artist WHERE album_artist_pid = ?), ''),"
          " ifnull((SELECT name FROM album WHERE album_pid = ?), ''),"
          " ifnull((SELECT name FROM item_artist WHERE item_artist_pid = ?), '')")),
      _setMoment(database.prepare(
          "INSERT INTO field_change (item_pid, field, changed_ms) VALUES (?, ?, ?)"
          " ON CONFLICT (item_pid, field) DO UPDATE SET changed_ms = excluded.changed_ms")),
      _removeMoment(database.prepare("DELETE FROM field_change WHERE item_pid = ? AND field = ?")) {
    _setColumn.resize(countedColumns().size());
}

FieldMoments TrackMergeStatements::momentsHeld(std::int64_t pid, std::int64_t base) {
    FieldMoments moments;
    moments.base = base;
    _moments->bindAll(pid);
    while (_moments.step()) {
        const std::int64_t field = _moments->int64(0);
        if (field > 0 && field < static_cast<std::int64_t>(TrackFieldLimit)) {
            moments.setOwn(static_cast<std::size_t>(field), _moments->int64(1));
        }
    }
    _moments->reset();
    return moments;
}

void TrackMergeStatements::compareNames(Plan& plan, const IncomingTrack& track,
                                        FieldComparison& comparison) {
    _names->bindAll(plan.heldNamePIDs[AlbumArtist], plan.heldNamePIDs[Album],
                    plan.heldNamePIDs[Artist]);
    _names.step();
    const std::string* theirs[] = {&track.record->album_artist(), &track.record->album(),
                                   &track.record->artist()};
    for (std::size_t name = 0; name < std::size(NameFields); ++name) {
        comparison.add(static_cast<std::size_t>(NameFields[name]),
                       theirs[name]->compare(_names->text(static_cast<int>(name))));
    }
    plan.heldAlbum = _names->text(static_cast<int>(Album));
    _names->reset();
}

TrackMergeStatements::Plan TrackMergeStatements::plan(const TrackStatements& statements,
                                                      std::int64_t pid, IncomingTrack& track) {
    IncomingTrack held;
    statements.readHeld(held);
    Plan plan;
    FieldComparison comparison;
    const auto& columns = countedColumns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const RecordColumn& column = *columns[i].column;
        if (const auto name = nameOf(column)) {
            plan.heldNamePIDs[*name] = statements.held(i).int64Value();
        } else if (column.field != 0) {
            comparison.add(static_cast<std::size_t>(column.field),
                           compareValues(column.value(track), statements.held(i)));
        }
    }
    compareNames(plan, track, comparison);

    const FieldMoments theirs = FieldMoments::of(*track.record);
    plan.heldMoments = momentsHeld(pid, held.metadataChangedMs);
    plan.moments = FieldMoments::joined(plan.heldMoments, theirs);
    const FieldComparison::Outcome outcome = comparison.decide(plan.heldMoments, theirs);
    plan.taken = outcome.taken;
    plan.takesOtherFile = plan.taken.test(qorx::Track::kContentHashFieldNumber);

    const IncomingTrack sent = track;
    track.globalID = largerID(held.globalID, sent.globalID);
    track.addedMs = std::max(held.addedMs, sent.addedMs);
    track.metadataChangedMs = plan.moments.base;
    track.rating = held.rating;
    track.ratingChangedMs = held.ratingChangedMs;
    track.bookmarkMs = held.bookmarkMs;
    track.bookmarkChangedMs = held.bookmarkChangedMs;
    mergeOwnerValues(*track.record, track);
    const auto identity = [](const IncomingTrack& of) {
        return std::tuple(of.globalID, of.addedMs, of.metadataChangedMs);
    };
    plan.changesIdentity = identity(track) != identity(held);
    plan.changesOwnerValues = ownerValues(track) != ownerValues(held);
    plan.recordLacksSomething = outcome.recordLacksSomething || !(plan.moments == theirs) ||
                                identity(track) != identity(sent) ||
                                holdsMoreOwnerValues(track, *track.record);
    return plan;
}

bool TrackMergeStatements::write(const FoundEntry& found, const Plan& plan,
                                 const IncomingTrack& track, Names& names) {
    writeColumns(found.rowID, plan, track);
    const bool isRenamed = writeNames(found.rowID, plan, track, names);
    if (plan.changesIdentity) {
        _database.execute("UPDATE item SET added_ms = ?, metadata_changed_ms = ? WHERE item_id = ?",
                          track.addedMs, track.metadataChangedMs, found.rowID);
        _database.execute("UPDATE item_extra SET global_id = ? WHERE item_id = ?", track.globalID,
                          found.rowID);
    }
    if (plan.changesOwnerValues) {
        _database.execute(
            "UPDATE item_stats SET user_rating = ?, rating_changed_ms = ?, bookmark_ms = ?,"
            " bookmark_changed_ms = ? WHERE item_id = ?",
            track.rating, track.ratingChangedMs, track.bookmarkMs, track.bookmarkChangedMs,
            found.rowID);
    }
    writeMoments(found.pid, plan.heldMoments, plan.moments);
    return isRenamed;
}

void TrackMergeStatements::writeColumns(std::int64_t itemID, const Plan& plan,
                                        const IncomingTrack& track) {
    const auto& columns = countedColumns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const auto& [table, column] = columns[i];
        if (nameOf(*column) || !plan.taken.test(static_cast<std::size_t>(column->field))) {
            continue;
        }
        std::optional<common::Query>& set = _setColumn[i];
        if (!set) {
            // A picture that a peer named is pulled from it.
            const bool isPicture = column->field == qorx::Track::kArtworkTokenFieldNumber;
            set.emplace(_database.prepare(
                fmt::format("UPDATE {} SET {} = ?1{} WHERE item_id = ?2", table->name, column->name,
                            isPicture ? ", cloud_artwork_token = ?1" : "")));
        }
        TrackStatements::bindBorrowed(**set, 1, column->value(track));
        (*set)->bind(2, itemID);
        set->run();
    }
}

// An album's row is that of its name and album artist.
bool TrackMergeStatements::writeNames(std::int64_t itemID, const Plan& plan,
                                      const IncomingTrack& track, Names& names) {
    const auto takes = [&](std::size_t name) {
        return plan.taken.test(static_cast<std::size_t>(NameFields[name]));
    };
    auto pids = plan.heldNamePIDs;
    if (takes(AlbumArtist)) {
        pids[AlbumArtist] = names.albumArtist(track.record->album_artist());
    }
    if (takes(AlbumArtist) || takes(Album)) {
        pids[Album] =
            names.album(takes(Album) ? track.record->album() : plan.heldAlbum, pids[AlbumArtist]);
    }
    if (takes(Artist)) {
        pids[Artist] = names.itemArtist(track.record->artist());
    }
    if (pids == plan.heldNamePIDs) {
        return false;
    }
    _database.execute(
        "UPDATE item SET album_artist_pid = ?, album_pid = ?, item_artist_pid = ?"
        " WHERE item_id = ?",
        pids[AlbumArtist], pids[Album], pids[Artist], itemID);
    return true;
}

void TrackMergeStatements::writeMoments(std::int64_t pid, const FieldMoments& held,
                                        const FieldMoments& moments) {
    for (std::size_t field = 1; field < TrackFieldLimit; ++field) {
        const std::int64_t own = moments.own(field);
        if (own == held.stored(field)) {
            continue;
        }
        common::Query& query = own == 0 ? _removeMoment : _setMoment;
        query->bind(1, pid);
        query->bind(2, static_cast<std::int64_t>(field));
        if (own != 0) {
            query->bind(3, own);
        }
        query.run();
    }
}

}  // namespace korvane
