// Purpose: random identifiers.
// Calling thread: any; those that take a database, its connection's.
#pragma once

#include <cstdint>
#include <string>

namespace common {
class Database;
}

namespace korvane {

// A persistent id: positive, and not in use on this device as persistent id or sync id, nor kept
// for something deleted.
std::int64_t newPersistentID(common::Database& database);
// 32 hexadecimal digits.
std::string randomUID();

}  // namespace korvane
