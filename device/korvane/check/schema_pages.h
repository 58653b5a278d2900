// Purpose: makes a damaged database readable whose damage lies in the pages that say which tables
// there
//          are. Every library has the same ones, since each begins with the same statements, so
//          they are borrowed from a new one.
// Calling thread: any.
// Failure: SqliteError; std::system_error from copying.
#pragma once

#include <string>

namespace korvane {

// Copies the damaged database and its log to `copyPath` (paths of this machine) with a new
// library's schema pages. Nothing else of it is looked at.
void copyWithNewSchemaPages(const std::string& damagedPath, const std::string& copyPath);

// Removes a database of this machine with its log and what belongs to that.
void removeDatabaseFiles(const std::string& path);

}  // namespace korvane
