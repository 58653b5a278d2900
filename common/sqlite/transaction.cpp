#include "common/sqlite/transaction.h"

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"

namespace common {

namespace {

// For rolling back: the engine may have rolled back by itself already (disk full, I/O error).
void executeQuietly(Database& database, const char* sql) noexcept {
    try {
        database.executeScript(sql);
    } catch (const std::exception&) {
    }
}

}  // namespace

Transaction::Transaction(Database& database, TransactionKind kind) : _database(database) {
    _database.executeScript(kind == TransactionKind::Write ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
    if (_open && _database.inTransaction())
        executeQuietly(_database, "ROLLBACK");
}

void Transaction::commit() {
    _database.executeScript("COMMIT");
    _open = false;
}

// The name may repeat: the innermost savepoint of a name is meant.
Savepoint::Savepoint(Database& database) : _database(database) {
    _database.execute("SAVEPOINT part");
}

Savepoint::~Savepoint() {
    if (_open && _database.inTransaction())
        executeQuietly(_database, "ROLLBACK TO part; RELEASE part");
}

void Savepoint::commit() {
    _database.execute("RELEASE part");
    _open = false;
}

}  // namespace common
