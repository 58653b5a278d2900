// Purpose: the places of tracks among all album artists and albums, as numbers that sort like the
//          names: case-folded, composed, by code point, leading articles kept.
// Calling thread: that of the connection, inside its write transaction.
// Failure: SqliteError.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace common {
class Database;
}

namespace korvane {

// What a name sorts as. Text that is not UTF-8 sorts as its bytes.
std::string sortKey(std::string_view name);

// Gives each key that has none a place between its neighbours, above 0. Where there is no gap left,
// every key and track is renumbered. `keys` may repeat and come in any order. Whether it was:
// places that the caller knows hold no more.
bool ensureSortOrders(common::Database& database, std::vector<std::string> keys);
// 0 for a key that has no place.
std::int64_t sortOrder(common::Database& database, const std::string& key);

// Places every track that has none: new ones, and those whose names changed.
void placeUnplacedItems(common::Database& database);

}  // namespace korvane
