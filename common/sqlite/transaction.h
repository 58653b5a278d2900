// Purpose: transactions and savepoints that roll back unless they are committed.
// Calling thread: that of the connection.
// Failure: beginning and committing throw SqliteError; rolling back never fails.
#pragma once

#include <string>

namespace common {

class Database;

enum class TransactionKind {
    Read,   // a steady view of the database
    Write,  // takes the write lock at once, waiting for it at most the busy wait
};

class Transaction {
public:
    Transaction(Database& database, TransactionKind kind);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit();

private:
    Database& _database;
    bool _open = true;
};

// A part of a transaction that can be undone by itself; they nest.
class Savepoint {
public:
    explicit Savepoint(Database& database);
    ~Savepoint();
    Savepoint(const Savepoint&) = delete;
    Savepoint& operator=(const Savepoint&) = delete;

    void commit();

private:
    Database& _database;
    bool _open = true;
};

}  // namespace common
