// Purpose: keeping the records of tracks that change few at a time, encoded when their rows are at
//          hand. A track's rows lie all over a large library; whoever tells another device of a few
//          changes reads their records one after another instead.
// Calling thread: that of the connection, inside a transaction.
// Failure: SqliteError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

// When one transaction changes more tracks than this, none of them is kept: so many are read by
// their rows, and what they are to others is not written twice.
inline constexpr std::int64_t MostKeptAtOnce = 2'000;
// Bytes. A larger one would take pages of its own.
inline constexpr std::size_t LargestKeptRecord = 3'500;

// Keeps the records of the tracks that have got a revision since change_state.base_revision. Comes
// last in a write transaction, before the base is moved: a track that changes after that gets
// another revision, and its record goes with the old one. Triggers drop the record of a track that
// changes in what gives no revision.
void keepRecordsOfChanges(common::Database& database);

// The tracks whose kept records are not what their rows make; none, unless the file is damaged.
std::vector<std::int64_t> tracksWithStaleRecords(common::Database& database);

}  // namespace korvane
