#include "common/sqlite/database_copy.h"

#include <sqlite3.h>

#include <memory>

#include "common/sqlite/sqlite_error.h"

namespace common {
namespace {

struct Close {
    void operator()(sqlite3* connection) const noexcept { sqlite3_close_v2(connection); }
};
using Connection = std::unique_ptr<sqlite3, Close>;

struct Finish {
    void operator()(sqlite3_backup* backup) const noexcept { sqlite3_backup_finish(backup); }
};

constexpr int BusyWait = 5000;  // milliseconds

Connection open(const std::string& path, int flags) {
    sqlite3* raw = nullptr;
    const int result = sqlite3_open_v2(
        path.c_str(), &raw, flags | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    Connection connection(raw);
    if (result != SQLITE_OK)
        throw SqliteError::ofConnection(raw, path);
    sqlite3_busy_timeout(raw, BusyWait);
    return connection;
}

void execute(const Connection& connection, const char* sql) {
    if (sqlite3_exec(connection.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK)
        throw SqliteError::ofConnection(connection.get(), sql);
}

}  // namespace

void copyDatabase(const std::string& source, const std::string& target) {
    const Connection from = open(source, SQLITE_OPEN_READONLY);
    const Connection to = open(target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    // A copy that is broken off is thrown away, so nothing needs to be undone in it.
    execute(to, "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF");
    std::unique_ptr<sqlite3_backup, Finish> backup(
        sqlite3_backup_init(to.get(), "main", from.get(), "main"));
    if (!backup)
        throw SqliteError::ofConnection(to.get(), target);
    // All of it in one step is one view of the source.
    const int result = sqlite3_backup_step(backup.get(), -1);
    backup.reset();
    if (result != SQLITE_DONE)
        throw SqliteError(result, target + ": " + sqlite3_errstr(result));
}

}  // namespace common
