// Purpose: copies a database as it is at one moment while others go on using it.
// Calling thread: any.
// Failure: SqliteError; what was written of the copy stays then.
#pragma once

#include <string>

namespace common {

// Both are paths of this machine. The copy takes the place of an empty file at `target`. Nobody
// waits for the copying, and what others write meanwhile is not in the copy. The copy reaches the
// disk when the system likes.
void copyDatabase(const std::string& source, const std::string& target);

}  // namespace common
