#include "common/sqlite/statement.h"

#include <gtest/gtest.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"

namespace {

using common::Database;
using platform::Value;

class SqliteStatement : public testing::Test {
protected:
    Database _database{":memory:", {}};
};

TEST_F(SqliteStatement, EveryTypeComesBackAsItWasBound) {
    const platform::Data bytes{0, 1, 255};
    auto query = _database.query("SELECT ?, ?, ?, ?, ?, ?", std::int64_t{-5}, 2.5, "text", bytes,
                                 nullptr, true);
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query->int64(0), -5);
    EXPECT_EQ(query->real(1), 2.5);
    EXPECT_EQ(query->text(2), "text");
    EXPECT_EQ(query->value(3), Value(bytes));
    EXPECT_TRUE(query->isNull(4));
    EXPECT_EQ(query->int64(5), 1);
    EXPECT_FALSE(query.step());
}

TEST_F(SqliteStatement, EmptyTextsAndBlobsAreNotNull) {
    auto query = _database.query("SELECT ?, ?", std::string_view(), platform::Data());
    ASSERT_TRUE(query.step());
    EXPECT_FALSE(query->isNull(0));
    EXPECT_FALSE(query->isNull(1));
    EXPECT_TRUE(query->view(1).string().empty());
    EXPECT_EQ(query->view(1).type(), Value::Type::Data);
}

TEST_F(SqliteStatement, TextMayHoldAZeroByte) {
    const std::string text("a\0b", 3);
    auto query = _database.query("SELECT ?", text);
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query->text(0), text);
}

TEST_F(SqliteStatement, ValuesOfEveryScalarTypeCanBeBound) {
    auto query = _database.query("SELECT ?, ?, ?, ?", Value(true), Value(std::uint64_t{7}),
                                 Value(platform::Date{1.5}), Value());
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query->int64(0), 1);
    EXPECT_EQ(query->int64(1), 7);
    EXPECT_EQ(query->real(2), 1.5);
    EXPECT_TRUE(query->isNull(3));
}

TEST_F(SqliteStatement, ACollectionCannotBeBound) {
    EXPECT_THROW(_database.query("SELECT ?", Value(platform::Array{})), common::SqliteError);
}

TEST_F(SqliteStatement, TheNumberOfBoundValuesMustFit) {
    EXPECT_THROW(_database.query("SELECT ?", 1, 2), common::SqliteError);
    EXPECT_THROW(_database.query("SELECT ?, ?", 1), common::SqliteError);
}

TEST_F(SqliteStatement, MoreThanOneStatementIsRefused) {
    EXPECT_THROW(_database.query("SELECT 1; SELECT 2"), common::SqliteError);
    EXPECT_THROW(_database.query(""), common::SqliteError);
    EXPECT_NO_THROW(_database.query("SELECT 1;  \n"));
}

TEST_F(SqliteStatement, ABoundTextIsNeverPartOfTheStatement) {
    _database.executeScript("CREATE TABLE t (a)");
    _database.execute("INSERT INTO t VALUES (?)", "'); DROP TABLE t; --");
    EXPECT_EQ(_database.int64("SELECT count(*) FROM t"), 1);
}

TEST_F(SqliteStatement, ACachedStatementForgetsItsBindings) {
    EXPECT_EQ(_database.int64("SELECT ifnull(?, -1)", 4), 4);
    auto query = _database.prepare("SELECT ifnull(?, -1)");
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query->int64(0), -1);
}

TEST_F(SqliteStatement, AStatementCanRunInsideItself) {
    _database.executeScript("CREATE TABLE t (a); INSERT INTO t VALUES (1), (2)");
    std::int64_t sum = 0;
    auto outer = _database.query("SELECT a FROM t");
    while (outer.step()) {
        auto inner = _database.query("SELECT a FROM t");
        while (inner.step())
            sum += outer->int64(0) * 10 + inner->int64(0);
    }
    EXPECT_EQ(sum, 11 + 12 + 21 + 22);
}

}  // namespace
