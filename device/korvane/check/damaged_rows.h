// Purpose: reads what can still be read of a table in a damaged database, around the places where
// the
//          engine finds damage.
// Calling thread: that of the connection.
// Failure: SqliteError for anything but damage.
#pragma once

#include <functional>
#include <string>

#include "common/sqlite/database.h"

namespace korvane {

// A table of integer keys that the engine keeps in their order.
struct DamagedTable {
    std::string columns;    // of the result; the first is the key
    std::string table;      // its name
    std::string key;        // the column that the rows are ordered by
    std::string condition;  // further, or empty; the table is ordered by the key below it
};

// Each readable row once, in ascending order of the key. Where several rows have one key and damage
// lies among them, those behind it are lost. The number of places where something could not be
// read.
std::size_t readAroundDamage(common::Database& database, const DamagedTable& table,
                             const std::function<void(common::Statement&)>& row);

}  // namespace korvane
