// Purpose: whether a database file is whole, and getting a damaged one out of the way.
// Calling thread: any; the database is not open elsewhere.
// Failure: SqliteError from opening; checks answer with what is wrong.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/errors.h"

namespace common {
class Database;
}
namespace device {
class RootedFileSystem;
}

namespace korvane {

// What is wrong with the tables, or nothing. `thoroughly` reads every page; otherwise the rows are
// counted and compared with the library's own counts, which also tells losses that the engine's
// check does not see.
std::optional<std::string> findDamage(common::Database& database, bool thoroughly);

// Opens for writing, brings the schema up to date and checks. One sign of damage is no verdict: the
// file is opened a second time before it is believed, and then SqliteError says so (isDamage).
std::unique_ptr<common::Database> openChecked(const std::string& realPath, bool thoroughly);

// Renames the database and its companions to "<path>.damaged-<seconds since 1970>". Nothing is
// deleted.
platform::OptionalError setDatabaseAside(device::RootedFileSystem& files, const std::string& path,
                                         double now);

}  // namespace korvane
