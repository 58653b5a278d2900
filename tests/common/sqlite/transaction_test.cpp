#include "common/sqlite/transaction.h"

#include <gtest/gtest.h>

#include "common/sqlite/database.h"
#include "tests/support/temporary_directory.h"

namespace {

using common::Database;
using common::Savepoint;
using common::Transaction;
using common::TransactionKind;

class SqliteTransaction : public testing::Test {
protected:
    void SetUp() override { _database.executeScript("CREATE TABLE t (a)"); }
    void add(int value) { _database.execute("INSERT INTO t VALUES (?)", value); }
    std::int64_t sum() { return _database.int64("SELECT ifnull(sum(a), 0) FROM t"); }

    Database _database{":memory:", {}};
};

TEST_F(SqliteTransaction, WhatIsNotCommittedIsGone) {
    {
        Transaction transaction(_database, TransactionKind::Write);
        add(1);
    }
    EXPECT_EQ(sum(), 0);
    EXPECT_FALSE(_database.inTransaction());
}

TEST_F(SqliteTransaction, WhatIsCommittedStays) {
    Transaction transaction(_database, TransactionKind::Write);
    add(1);
    transaction.commit();
    EXPECT_EQ(sum(), 1);
}

TEST_F(SqliteTransaction, ASavepointUndoesItsPartOnly) {
    Transaction transaction(_database, TransactionKind::Write);
    add(1);
    {
        Savepoint outer(_database);
        add(10);
        {
            Savepoint inner(_database);
            add(100);
        }
        outer.commit();
    }
    transaction.commit();
    EXPECT_EQ(sum(), 11);
}

TEST_F(SqliteTransaction, AnUndoneOuterSavepointTakesTheInnerOneWithIt) {
    Transaction transaction(_database, TransactionKind::Write);
    {
        Savepoint outer(_database);
        Savepoint inner(_database);
        add(100);
        inner.commit();
    }
    transaction.commit();
    EXPECT_EQ(sum(), 0);
}

TEST(SqliteSavepoint, UndoesMoreThanIsKeptInMemory) {
    const test::TemporaryDirectory directory;
    Database database(directory / "database", {});
    database.executeScript(
        "CREATE TABLE t (a INTEGER PRIMARY KEY, b); INSERT INTO t SELECT value, zeroblob(1000) "
        "FROM (WITH RECURSIVE n (value) AS (SELECT 1 UNION ALL SELECT value + 1 FROM n WHERE value "
        "< 5000) SELECT value FROM n)");
    Transaction transaction(database, TransactionKind::Write);
    {
        Savepoint undone(database);
        EXPECT_EQ(database.execute("UPDATE t SET b = a"), 5000);
    }
    EXPECT_EQ(database.int64("SELECT count(*) FROM t WHERE b = zeroblob(1000)"), 5000);
    for (int again = 0; again < 2; ++again) {
        Savepoint kept(database);
        EXPECT_EQ(database.execute("UPDATE t SET b = a + ?", again), 5000);
        kept.commit();
    }
    transaction.commit();
    EXPECT_EQ(database.int64("SELECT count(*) FROM t WHERE b = a + 1"), 5000);
}

}  // namespace
