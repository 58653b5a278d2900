#include "common/sqlite/database.h"

#include <sqlite3.h>

#include <utility>

#include "common/sqlite/sqlite_error.h"

namespace common {

namespace {
// Bounds the memory of a caller that makes up its statements.
constexpr std::size_t MaximumCachedStatements = 256;

// What a savepoint or a statement keeps to be undone goes into a file beyond this. The engine's own
// 64 KiB is less than what one change of a track touches, with all its indexes. What is kept by
// then is written in one piece, and the engine writes less than 128 KiB at once: more than that
// fails.
constexpr int UndoBytesInMemory = 120 * 1024;

// Nobody reads the engine's memory statistics, and keeping them takes a lock of the whole process
// for every allocation. Has no effect when something else has started the engine already.
void configureEngine() {
    [[maybe_unused]] static const int result =
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) |
        sqlite3_config(SQLITE_CONFIG_STMTJRNL_SPILL, UndoBytesInMemory);
}
}  // namespace

void Database::Close::operator()(sqlite3* connection) const noexcept {
    sqlite3_close_v2(connection);
}

Database::Database(const std::string& path, const DatabaseOptions& options) : _path(path) {
    configureEngine();
    sqlite3* raw = nullptr;
    // Callers keep to one thread at a time, so the engine's own locks are not needed.
    const int flags =
        SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE |
        (options.readOnly ? SQLITE_OPEN_READONLY
                          : SQLITE_OPEN_READWRITE | (options.create ? SQLITE_OPEN_CREATE : 0));
    const int result = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
    _connection.reset(raw);
    if (result != SQLITE_OK)
        throw SqliteError::ofConnection(raw, path);
    configure(options);
}

Database::~Database() {
    _statements.clear();
}

void Database::configure(const DatabaseOptions& options) {
    sqlite3* connection = _connection.get();
    sqlite3_busy_timeout(connection, static_cast<int>(options.busyWait.count()));
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
    executeScript("PRAGMA cell_size_check = ON");
    setCacheKiB(options.cacheKiB);
    if (options.readOnly)
        return;
    executeScript("PRAGMA journal_mode = WAL");
    executeScript(options.fullSync ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
}

void Database::executeScript(const std::string& sql) {
    if (sqlite3_exec(_connection.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw SqliteError::ofConnection(_connection.get(), sql);
}

Query Database::prepare(std::string_view sql) {
    auto found = _statements.find(sql);
    if (found == _statements.end()) {
        if (_statements.size() >= MaximumCachedStatements)
            clearStatementCache();
        auto made = std::make_unique<CachedStatement>(Statement(_connection.get(), sql, true));
        found = _statements.emplace(std::string(sql), std::move(made)).first;
    }
    // A statement that already runs further up the stack gets a sister.
    if (found->second->inUse)
        return Query(std::make_unique<Statement>(_connection.get(), sql, false));
    return Query(*found->second);
}

std::int64_t Database::changedRows() const {
    return sqlite3_changes64(_connection.get());
}

std::int64_t Database::lastInsertedRow() const {
    return sqlite3_last_insert_rowid(_connection.get());
}

bool Database::inTransaction() const {
    return sqlite3_get_autocommit(_connection.get()) == 0;
}

void Database::interrupt() {
    sqlite3_interrupt(_connection.get());
}

void Database::setCacheKiB(int cacheKiB) {
    executeScript("PRAGMA cache_size = -" + std::to_string(cacheKiB));
}

void Database::clearStatementCache() {
    std::erase_if(_statements, [](const auto& entry) { return !entry.second->inUse; });
}

Query::Query(Database::CachedStatement& cached) : _cached(&cached), _statement(&cached.statement) {
    cached.inUse = true;
}

Query::Query(std::unique_ptr<Statement> owned)
    : _owned(std::move(owned)), _statement(_owned.get()) {}

Query::Query(Query&& other) noexcept
    : _cached(std::exchange(other._cached, nullptr)),
      _owned(std::move(other._owned)),
      _statement(std::exchange(other._statement, nullptr)) {}

Query::~Query() {
    if (_statement)
        _statement->reset();
    if (_cached)
        _cached->inUse = false;
}

void Query::run() {
    while (_statement->step()) {
    }
    _statement->reset();
}

}  // namespace common
