// Purpose: whether a library database that somebody supplies may become this device's.
// Calling thread: any; the database is not open elsewhere.
// Failure: SqliteError when the file cannot be opened at all.
#pragma once

#include <optional>
#include <string>

namespace korvane {

// What is wrong with the database at a path of this machine: it is damaged, of a newer version, or
// has tables or triggers that no library has. Otherwise nothing: it is then of the newest version,
// whole in its one file, and its next opening gives it a uid of its own.
std::optional<std::string> adoptRestoredDatabase(const std::string& realPath);

}  // namespace korvane
