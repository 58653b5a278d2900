// Purpose: one connection to a SQLite database, its cached statements and its pragmas.
// Calling thread: one at a time; only interrupt() may come from another thread meanwhile.
// Ownership: a Database owns its connection and statements; a Query gives its statement back to the
//            cache when it ends and must end before the Database.
// Failure: SqliteError is thrown by everything that can fail. No wait is longer than the busy wait.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "common/sqlite/statement.h"

namespace common {

struct DatabaseOptions {
    bool readOnly = false;
    bool create = true;
    // How long a statement waits for another connection's lock before it fails.
    std::chrono::milliseconds busyWait{5000};
    int cacheKiB = 2048;
    // Every commit reaches the disk before it returns; otherwise a power cut may take the last
    // ones.
    bool fullSync = true;
};

class Query;

class Database {
public:
    // `path` is a path of this machine. Sets write-ahead logging and refuses what a damaged or
    // hostile file could use: schema functions, direct writes to internal tables.
    Database(const std::string& path, const DatabaseOptions& options);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& path() const { return _path; }

    // Statements without parameters and results, separated by semicolons.
    void executeScript(const std::string& sql);
    // One statement to its end; texts and blobs are not copied. Returns the rows it changed.
    template <typename... Values>
    std::int64_t execute(std::string_view sql, const Values&... values);
    // A statement to step through. Texts and blobs are copied.
    template <typename... Values>
    Query query(std::string_view sql, const Values&... values);
    // The first column of the first row; 0 without a row or for null.
    template <typename... Values>
    std::int64_t int64(std::string_view sql, const Values&... values);
    // The cached statement, with nothing bound; for loops that bind for themselves.
    Query prepare(std::string_view sql);

    // Rows changed by the statement that ran last (triggers not counted).
    std::int64_t changedRows() const;
    std::int64_t lastInsertedRow() const;
    bool inTransaction() const;
    // Stops the statement that runs, which then fails as interrupted; nothing when none runs. Any
    // thread, while the Database lives.
    void interrupt();
    void setCacheKiB(int cacheKiB);
    // Drops the statements that nobody uses.
    void clearStatementCache();

private:
    friend class Query;
    struct CachedStatement {
        explicit CachedStatement(Statement s) : statement(std::move(s)) {}
        Statement statement;
        bool inUse = false;
    };
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>{}(text);
        }
    };
    struct Close {
        void operator()(sqlite3* connection) const noexcept;
    };

    void configure(const DatabaseOptions& options);

    std::string _path;
    std::unique_ptr<sqlite3, Close> _connection;
    // Keyed by text. Pointers to entries stay valid while others come and go.
    std::unordered_map<std::string, std::unique_ptr<CachedStatement>, Hash, std::equal_to<>>
        _statements;
};

// The use of one statement: reset and given back when it goes out of scope.
class Query {
public:
    Query(Query&& other) noexcept;
    Query& operator=(Query&&) = delete;
    ~Query();

    Statement* operator->() { return _statement; }
    Statement& operator*() { return *_statement; }
    bool step() { return _statement->step(); }
    // To its end, then ready for other values.
    void run();

private:
    friend class Database;
    explicit Query(Database::CachedStatement& cached);
    explicit Query(std::unique_ptr<Statement> owned);

    Database::CachedStatement* _cached = nullptr;  // null: the statement is the query's own
    std::unique_ptr<Statement> _owned;
    Statement* _statement = nullptr;
};

template <typename... Values>
std::int64_t Database::execute(std::string_view sql, const Values&... values) {
    Query statement = prepare(sql);
    statement->bindAllBorrowed(values...);
    statement.run();
    return changedRows();
}

template <typename... Values>
Query Database::query(std::string_view sql, const Values&... values) {
    Query statement = prepare(sql);
    statement->bindAll(values...);
    return statement;
}

template <typename... Values>
std::int64_t Database::int64(std::string_view sql, const Values&... values) {
    Query statement = prepare(sql);
    statement->bindAllBorrowed(values...);
    return statement.step() ? statement->int64(0) : 0;
}

}  // namespace common
