// Purpose: the statements on the five rows of a track, made from the list of columns.
// Calling thread: that of the import, inside its transaction.
// Failure: SqliteError.
#pragma once

#include <bitset>
#include <cstdint>
#include <string_view>
#include <vector>

#include "common/sqlite/database.h"
#include "device/korvane/field_times.h"
#include "device/korvane/import/track_places.h"
#include "platform/values.h"

namespace korvane {

struct IncomingTrack;

inline constexpr std::size_t RecordTableCount = 5;
inline constexpr std::size_t ItemTable = 0;
inline constexpr std::size_t ArtworkTable = 4;
using RecordTableSet = std::bitset<RecordTableCount>;

// Where a track's rows differ from an incoming one.
struct TrackDifferences {
    RecordTableSet tables;
    TrackFieldSet fields;
};

class TrackStatements {
public:
    explicit TrackStatements(common::Database& database);

    // Stands on the track's row afterwards, until close; false: there is none.
    // Tracks that came together lie together: those that come again in the same order are read on
    // from one to the next.
    bool openBySyncID(std::int64_t syncID);
    bool openByItemID(std::int64_t itemID) { return open(_selectByItemID, itemID); }
    void close();

    // Of the row that is open.
    std::int64_t itemID() const { return (*_row)->int64(0); }
    std::int64_t pid() const { return (*_row)->int64(1); }
    // One of the columns of recordTables(), which are counted through; borrowed until close.
    platform::ValueView held(std::size_t column) const;
    // Fills in what the track has now and a record may leave as it is.
    void readHeld(IncomingTrack& track) const;
    // Whether both this row and a record know the file's hash and it is not the same.
    bool hasOtherFile(std::string_view contentHash) const;
    TrackDifferences differences(const IncomingTrack& track) const;

    void update(std::int64_t itemID, const IncomingTrack& track, const RecordTableSet& tables);
    void insert(std::int64_t pid, const IncomingTrack& track, const TrackPlace& place);
    std::int64_t lastItemID() const { return _nextItemID - 1; }
    // The file that is here is not the one that the track has now: it is to come again.
    void forgetFile(std::int64_t itemID);

    // Binds a value that lives until the statement has run.
    static void bindBorrowed(common::Statement& statement, int index,
                             const platform::ValueView& value);

private:
    bool open(common::Query& query, std::int64_t id);
    bool openFollowing(std::int64_t syncID);

    common::Database& _database;
    common::Query _selectBySyncID;
    common::Query _selectByItemID;
    common::Query _selectFollowing;
    int _syncIDColumn;
    bool _isFollowing = false;     // _selectFollowing stands on the track found last
    std::int64_t _lastFound = -1;  // the item_id that a sync id found last
    std::vector<common::Query> _inserts;
    std::vector<common::Query> _updates;
    common::Query* _row = nullptr;  // the select that stands on a row
    std::vector<int> _heldColumns;  // places in a select of what readHeld reads
    int _contentHashColumn;
    std::int64_t _nextItemID;
};

}  // namespace korvane
