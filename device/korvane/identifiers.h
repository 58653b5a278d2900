// Purpose: random identifiers.
// Calling thread: any; those that take a database, its connection's.
#pragma once

#include <cstdint>
#include <string>

namespace common {
class Database;
}

namespace korvane {

// Whether an id is in use on this device as persistent id or sync id, or kept for something
// deleted.
bool isTakenID(common::Database& database, std::int64_t id);
// A persistent id: positive and not taken.
std::int64_t newPersistentID(common::Database& database);
// 32 hexadecimal digits.
std::string randomUID();

}  // namespace korvane
