// Purpose: when the fields of a track changed: those that changed after the track's metadata came
//          have a row of their own.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

#include <bitset>
#include <cstdint>

#include "common/sqlite/database.h"

namespace korvane {

// Numbers of fields in the record of a track (common/qorx/qorx.proto). What is one field together
// goes by one number: the file's facts by that of the content hash, the store's by its own.
inline constexpr std::size_t TrackFieldLimit = 64;
using TrackFieldSet = std::bitset<TrackFieldLimit>;

class FieldTimes {
public:
    explicit FieldTimes(common::Database& database);

    // The fields have changed just now (milliseconds since 1970), after everything before.
    void setChanged(std::int64_t pid, const TrackFieldSet& fields, std::int64_t nowMs);

private:
    common::Query _set;
};

}  // namespace korvane
