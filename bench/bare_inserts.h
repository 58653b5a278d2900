// Purpose: the rows of a library put into an empty one with prepared inserts and nothing else:
//          what an import is measured against.
#pragma once

#include <string>

#include "bench/figures.h"

namespace bench {

// A new database with the tables and indices of a library, without the triggers, and the rows of
// the tracks of `library`. The cost is that of the inserts and their one transaction.
Cost copyWithInserts(const std::string& library, const std::string& copy);

}  // namespace bench
