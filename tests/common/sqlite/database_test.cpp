#include "common/sqlite/database.h"

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"
#include "tests/support/temporary_directory.h"

namespace {

using common::Database;
using common::SqliteError;

class SqliteDatabase : public testing::Test {
protected:
    test::TemporaryDirectory _directory;
    std::string _path = _directory / "test.db";
};

TEST_F(SqliteDatabase, AMissingFileIsMadeOnlyWhenAskedFor) {
    EXPECT_THROW(Database(_path, {.create = false}), SqliteError);
    EXPECT_THROW(Database(_path, {.readOnly = true}), SqliteError);
    EXPECT_NO_THROW(Database(_path, {}));
}

TEST_F(SqliteDatabase, AReadOnlyConnectionRefusesWrites) {
    Database writer(_path, {});
    writer.executeScript("CREATE TABLE t (a)");
    Database reader(_path, {.readOnly = true});
    EXPECT_EQ(reader.int64("SELECT count(*) FROM t"), 0);
    EXPECT_THROW(reader.execute("INSERT INTO t VALUES (1)"), SqliteError);
}

TEST_F(SqliteDatabase, WriteAheadLoggingAndFullSyncAreOn) {
    Database database(_path, {});
    auto mode = database.query("PRAGMA journal_mode");
    ASSERT_TRUE(mode.step());
    EXPECT_EQ(mode->text(0), "wal");
    EXPECT_EQ(database.int64("PRAGMA synchronous"), 2);
    EXPECT_EQ(database.int64("PRAGMA trusted_schema"), 0);
}

TEST_F(SqliteDatabase, AFileThatIsNoDatabaseIsDamage) {
    std::ofstream(_path) << std::string(4096, 'x');
    try {
        Database database(_path, {});
        FAIL() << "opened";
    } catch (const SqliteError& error) {
        EXPECT_TRUE(error.isDamage());
        EXPECT_EQ(error.platformError().domain, common::SqliteErrorDomain);
    }
}

TEST_F(SqliteDatabase, ALockHeldElsewhereEndsInABusyErrorAfterTheWait) {
    Database holder(_path, {});
    holder.executeScript("CREATE TABLE t (a)");
    common::Transaction transaction(holder, common::TransactionKind::Write);
    Database other(_path, {.busyWait = std::chrono::milliseconds(20)});
    try {
        other.execute("INSERT INTO t VALUES (1)");
        FAIL() << "wrote";
    } catch (const SqliteError& error) {
        EXPECT_TRUE(error.isBusy());
    }
}

TEST_F(SqliteDatabase, ChangedRowsAndLastInsertedRowAreReported) {
    Database database(_path, {});
    database.executeScript("CREATE TABLE t (id INTEGER PRIMARY KEY, a)");
    EXPECT_EQ(database.execute("INSERT INTO t (id, a) VALUES (7, 1), (9, 2)"), 2);
    EXPECT_EQ(database.lastInsertedRow(), 9);
    EXPECT_EQ(database.execute("UPDATE t SET a = 3 WHERE id > 100"), 0);
}

TEST_F(SqliteDatabase, AnInterruptEndsTheStatementThatRuns) {
    Database database(_path, {});
    std::atomic<bool> ended = false;
    std::thread interrupter([&] {
        while (!ended) {
            database.interrupt();
            std::this_thread::yield();
        }
    });
    try {
        database.int64(
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT count(*) FROM "
            "n");
        ADD_FAILURE() << "an endless statement ended";
    } catch (const SqliteError& error) {
        EXPECT_TRUE(error.isInterrupted());
    }
    ended = true;
    interrupter.join();
    EXPECT_EQ(database.int64("SELECT 1"), 1);
}

TEST_F(SqliteDatabase, TheStatementCacheStaysBounded) {
    Database database(_path, {});
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(database.int64("SELECT " + std::to_string(i)), i);
}

}  // namespace
