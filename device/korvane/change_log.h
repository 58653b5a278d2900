// Purpose: the change log's length.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

namespace common {
class Database;
}

namespace korvane {

// Forgets deletions that every known peer has acknowledged. While one has acknowledged nothing, or
// none is known, everything is kept.
void pruneChangeLog(common::Database& database);

}  // namespace korvane
