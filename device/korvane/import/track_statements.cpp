#include "device/korvane/import/track_statements.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>

#include "device/korvane/import/record_columns.h"

namespace korvane {

using platform::Value;
using platform::ValueView;

namespace {

// Before the listed columns of a row: item_id and item_pid.
constexpr int IDColumns = 2;
struct HeldValue {
    const char* column;
    std::int64_t IncomingTrack::*member;
};
constexpr HeldValue HeldValues[] = {
    {"sources", &IncomingTrack::sources},
    {"global_id", &IncomingTrack::globalID},
    {"date_added", &IncomingTrack::dateAdded},
    {"added_ms", &IncomingTrack::addedMs},
    {"metadata_changed_ms", &IncomingTrack::metadataChangedMs},
    {"user_rating", &IncomingTrack::rating},
    {"rating_changed_ms", &IncomingTrack::ratingChangedMs},
    {"bookmark_ms", &IncomingTrack::bookmarkMs},
    {"bookmark_changed_ms", &IncomingTrack::bookmarkChangedMs},
};

// The place of a listed column in a select.
int columnIndex(std::string_view name) {
    int index = IDColumns;
    for (const RecordTable& table : recordTables()) {
        for (const RecordColumn& column : table.columns) {
            if (column.name == name) {
                return index;
            }
            ++index;
        }
    }
    throw std::logic_error("no such column");
}

std::string selectStatement(std::string_view from, std::string_view where) {
    std::string columns;
    for (const RecordTable& table : recordTables()) {
        for (const RecordColumn& column : table.columns) {
            columns += fmt::format(", {}.{}", table.name, column.name);
        }
    }
    // The lookup's table is read first, the others by their row ids.
    std::string joins(from);
    for (const RecordTable& table : recordTables()) {
        if (table.name != from) {
            joins += fmt::format(" CROSS JOIN {0} ON {0}.item_id = {1}.item_id", table.name, from);
        }
    }
    return fmt::format("SELECT item.item_id, item.item_pid{} FROM {} WHERE {}", columns, joins,
                       where);
}

// A new row of item comes with its place among the others; the triggers take the place of a changed
// one away, and the end of the transaction gives it another.
constexpr const char* PlaceColumns[] = {"album_artist_order", "album_order"};

std::string insertStatement(const RecordTable& table) {
    std::string names, marks;
    if (&table == &recordTables()[ItemTable]) {
        for (const char* column : PlaceColumns) {
            names += fmt::format(", {}", column);
            marks += ", ?";
        }
    }
    for (const RecordColumn& column : table.columns) {
        names += fmt::format(", {}", column.name);
        marks += ", ?";
    }
    if (&table == &recordTables()[ArtworkTable]) {
        names += ", cloud_artwork_token";
        marks += ", ?";
    }
    return fmt::format("INSERT INTO {} (item_id, item_pid{}) VALUES (?, ?{})", table.name, names,
                       marks);
}

std::string updateStatement(const RecordTable& table) {
    std::string assignments;
    for (const RecordColumn& column : table.columns) {
        assignments += fmt::format("{}{} = ?", assignments.empty() ? "" : ", ", column.name);
    }
    return fmt::format("UPDATE {} SET {} WHERE item_id = ?", table.name, assignments);
}

}  // namespace

void TrackStatements::bindBorrowed(common::Statement& statement, int index, const ValueView& view) {
    switch (view.type()) {
        case Value::Type::Signed:
            statement.bind(index, view.int64Value());
            break;
        case Value::Type::String:
            statement.bind(index, view.string(), common::BindLifetime::Borrowed);
            break;
        case Value::Type::Data:
            statement.bind(index,
                           std::span(reinterpret_cast<const std::uint8_t*>(view.string().data()),
                                     view.string().size()),
                           common::BindLifetime::Borrowed);
            break;
        default:
            statement.bind(index, nullptr);
    }
}

namespace {

bool isSame(const ValueView& a, const ValueView& b) {
    if (a.type() != b.type()) {
        return false;
    }
    return a.type() == Value::Type::Signed ? a.int64Value() == b.int64Value()
                                           : a.string() == b.string();
}

// Binds a table's values from `index` on and returns the next index.
int bindValues(common::Statement& statement, int index, const RecordTable& table,
               const IncomingTrack& track) {
    for (const RecordColumn& column : table.columns) {
        TrackStatements::bindBorrowed(statement, index++, column.value(track));
    }
    return index;
}

}  // namespace

TrackStatements::TrackStatements(common::Database& database)
    : _database(database),
      _selectBySyncID(database.prepare(
          selectStatement("item_store", "item_store.sync_id = ? AND item_store.sync_id <> 0"))),
      _selectByItemID(database.prepare(selectStatement("item", "item.item_id = ?"))),
      _selectFollowing(
          database.prepare(selectStatement("item", "item.item_id > ? ORDER BY item.item_id"))),
      _syncIDColumn(columnIndex("sync_id")),
      _contentHashColumn(columnIndex("content_hash")),
      _nextItemID(database.int64("SELECT ifnull(max(item_id), 0) + 1 FROM item")) {
    for (const HeldValue& held : HeldValues) {
        _heldColumns.push_back(columnIndex(held.column));
    }
    for (const RecordTable& table : recordTables()) {
        _inserts.push_back(database.prepare(insertStatement(table)));
        _updates.push_back(database.prepare(updateStatement(table)));
    }
}

bool TrackStatements::open(common::Query& query, std::int64_t id) {
    close();
    query->bind(1, id);
    if (!query.step()) {
        query->reset();
        return false;
    }
    _row = &query;
    return true;
}

bool TrackStatements::openBySyncID(std::int64_t syncID) {
    if (syncID == 0) {
        close();
        return false;
    }
    if (openFollowing(syncID)) {
        return true;
    }
    if (!open(_selectBySyncID, syncID)) {
        return false;
    }
    const std::int64_t found = itemID();
    if (found == _lastFound + 1) {
        _selectFollowing->bind(1, found);
        _isFollowing = true;
    }
    _lastFound = found;
    return true;
}

bool TrackStatements::openFollowing(std::int64_t syncID) {
    close();
    if (!_isFollowing) {
        return false;
    }
    if (_selectFollowing.step() && _selectFollowing->int64(_syncIDColumn) == syncID) {
        _row = &_selectFollowing;
        _lastFound = itemID();
        return true;
    }
    _selectFollowing->reset();
    _isFollowing = false;
    return false;
}

void TrackStatements::close() {
    // The following rows are read on from where they stand.
    if (_row != nullptr && _row != &_selectFollowing) {
        (*_row)->reset();
    }
    _row = nullptr;
}

ValueView TrackStatements::held(std::size_t column) const {
    return (*_row)->view(IDColumns + static_cast<int>(column));
}

void TrackStatements::readHeld(IncomingTrack& track) const {
    for (std::size_t i = 0; i < std::size(HeldValues); ++i) {
        track.*HeldValues[i].member = (*_row)->int64(_heldColumns[i]);
    }
}

bool TrackStatements::hasOtherFile(std::string_view contentHash) const {
    const ValueView held = (*_row)->view(_contentHashColumn);
    return !held.isNull() && !contentHash.empty() && held.string() != contentHash;
}

TrackDifferences TrackStatements::differences(const IncomingTrack& track) const {
    TrackDifferences different;
    int index = IDColumns;
    for (std::size_t table = 0; table < RecordTableCount; ++table) {
        for (const RecordColumn& column : recordTables()[table].columns) {
            if (!isSame((*_row)->view(index++), column.value(track))) {
                different.tables.set(table);
                different.fields.set(static_cast<std::size_t>(column.field));
            }
        }
    }
    different.fields.reset(0);
    return different;
}

void TrackStatements::update(std::int64_t itemID, const IncomingTrack& track,
                             const RecordTableSet& tables) {
    for (std::size_t table = 0; table < RecordTableCount; ++table) {
        if (tables.test(table)) {
            common::Query& query = _updates[table];
            query->bind(bindValues(*query, 1, recordTables()[table], track), itemID);
            query.run();
        }
    }
}

void TrackStatements::insert(std::int64_t pid, const IncomingTrack& track,
                             const TrackPlace& place) {
    const std::int64_t itemID = _nextItemID++;
    for (std::size_t table = 0; table < RecordTableCount; ++table) {
        common::Query& query = _inserts[table];
        query->bind(1, itemID);
        query->bind(2, pid);
        int index = 3;
        if (table == ItemTable) {
            query->bind(index++, place.albumArtistOrder);
            query->bind(index++, place.albumOrder);
        }
        index = bindValues(*query, index, recordTables()[table], track);
        if (table == ArtworkTable) {
            bindBorrowed(*query, index, ValueView(track.cloudArtworkToken));
        }
        query.run();
    }
}

void TrackStatements::forgetFile(std::int64_t itemID) {
    _database.execute("UPDATE item SET base_location_id = 0 WHERE item_id = ?", itemID);
    _database.execute("UPDATE item_extra SET location_file_name = '' WHERE item_id = ?", itemID);
}

}  // namespace korvane
