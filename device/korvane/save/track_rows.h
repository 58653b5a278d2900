// Purpose: the rows of tracks, found one at a time and made into records. Whoever asks for them in
//          the order in which they lie in the library gets them at the speed of reading through it.
// Calling thread: that of the connection, inside one transaction.
// Failure: SqliteError.
#pragma once

#include <cstdint>

#include "common/sqlite/database.h"

namespace qorx {
class Track;
}

namespace korvane {

class TrackRows {
public:
    explicit TrackRows(common::Database& database);

    // Each stands on the track's row when it answers true.
    // False: the track is not the one after the last, or the tracks are not asked for in the order
    // of the library.
    bool readOnTo(std::int64_t pid);
    // False: there is no such track.
    bool lookUp(std::int64_t pid);

    // --- of the row stood on
    // Sets what the five rows of the track hold, in a record that is clear.
    void fill(qorx::Track& record) const;
    // False: its plays are all zero.
    bool wasPlayedOrSkipped() const;

private:
    common::Query _onward;  // the tracks after one, in their order
    common::Query _lookUp;  // one by its id
    common::Statement* _row = nullptr;
    bool _readsOn = false;
    std::int64_t _lastItemID = 0;
    int _neighbours = 0;  // looked up in a row, each next to the one before
};

}  // namespace korvane
