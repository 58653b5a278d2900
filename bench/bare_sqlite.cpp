#include "bench/bare_sqlite.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

BareConnection openBare(const std::string& path, int cacheKiB) {
    sqlite3* raw = nullptr;
    const int result =
        sqlite3_open_v2(path.c_str(), &raw,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    BareConnection connection(raw, sqlite3_close);
    if (result != SQLITE_OK) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), sqlite3_errmsg(raw));
        std::exit(1);
    }
    executeBare(raw, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA cache_size = -" +
                         std::to_string(cacheKiB));
    return connection;
}

void executeBare(sqlite3* connection, const std::string& sql) {
    if (sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK)
        return;
    std::fprintf(stderr, "%s: %s\n", sql.c_str(), sqlite3_errmsg(connection));
    std::exit(1);
}

BareStatement prepareBare(sqlite3* connection, const std::string& sql) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v3(connection, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr) !=
        SQLITE_OK) {
        std::fprintf(stderr, "%s: %s\n", sql.c_str(), sqlite3_errmsg(connection));
        std::exit(1);
    }
    return {raw, sqlite3_finalize};
}

void runBare(sqlite3_stmt* statement) {
    if (sqlite3_step(statement) != SQLITE_DONE) {
        std::fprintf(stderr, "%s: %s\n", sqlite3_sql(statement),
                     sqlite3_errmsg(sqlite3_db_handle(statement)));
        std::exit(1);
    }
    sqlite3_reset(statement);
}

std::int64_t readBare(sqlite3_stmt* rows) {
    std::int64_t sum = 0;
    const int columns = sqlite3_column_count(rows);
    while (sqlite3_step(rows) == SQLITE_ROW)
        for (int column = 0; column < columns; ++column)
            switch (sqlite3_column_type(rows, column)) {
                case SQLITE_INTEGER:
                    sum += sqlite3_column_int64(rows, column);
                    break;
                case SQLITE_TEXT:
                    sum += *sqlite3_column_text(rows, column) + sqlite3_column_bytes(rows, column);
                    break;
            }
    sqlite3_reset(rows);
    return sum;
}

}  // namespace bench
