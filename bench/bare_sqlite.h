// Purpose: SQLite's own interface with nothing around it, as the peers of the benchmarks use it.
// Ownership: a statement must end before its connection.
// Failure: ends the program.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

namespace bench {

using BareConnection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using BareStatement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

inline constexpr int WriterCacheKiB = 64 * 1024;
inline constexpr int ReaderCacheKiB = 4 * 1024;

// With write-ahead logging, every commit on the disk: what the library asks for as well.
BareConnection openBare(const std::string& path, int cacheKiB);
void executeBare(sqlite3* connection, const std::string& sql);
BareStatement prepareBare(sqlite3* connection, const std::string& sql);
// The statement to its end, and ready again.
void runBare(sqlite3_stmt* statement);
// Reads every column of every row, as what it is, and makes the statement ready again. A sum that
// keeps the reading from being left out.
std::int64_t readBare(sqlite3_stmt* rows);

}  // namespace bench
