#include "common/sqlite/sqlite_error.h"

#include <sqlite3.h>

namespace common {

static_assert(SqliteAborted == SQLITE_ABORT && SqliteReadOnly == SQLITE_READONLY &&
              SqliteDamaged == SQLITE_CORRUPT && SqliteCannotOpen == SQLITE_CANTOPEN &&
              SqliteOutOfRange == SQLITE_RANGE);

namespace {
int primaryCode(int extended) {
    return extended & 0xff;
}
}  // namespace

SqliteError SqliteError::ofConnection(sqlite3* connection, std::string_view what) {
    const int code = connection ? sqlite3_extended_errcode(connection) : SQLITE_NOMEM;
    std::string text = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(SQLITE_NOMEM);
    if (!what.empty())
        text.append(" (").append(what.substr(0, 200)).append(")");
    return SqliteError(code, text);
}

bool SqliteError::isBusy() const {
    const int code = primaryCode(_code);
    return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

bool SqliteError::isDamage() const {
    const int code = primaryCode(_code);
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool SqliteError::isDiskFull() const {
    return primaryCode(_code) == SQLITE_FULL;
}

bool SqliteError::isInterrupted() const {
    return primaryCode(_code) == SQLITE_INTERRUPT;
}

platform::Error SqliteError::platformError() const {
    return platform::Error(SqliteErrorDomain, _code, what());
}

}  // namespace common
