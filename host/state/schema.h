// Purpose: the tables of a folder's state and their versions.
// Thread: that of the database.
// Failure: SqliteError; a state of a newer version is refused by returning false.
#pragma once

namespace common {
class Database;
}

namespace host {

// Kept in user_version; frozen once released.
enum class StateVersion : int {
    Empty = 0,
    First = 1,
    FailedItems = 2,
    Current = FailedItems,
};

// Brings the tables to the current version in one transaction.
bool migrateState(common::Database& database);

}  // namespace host
