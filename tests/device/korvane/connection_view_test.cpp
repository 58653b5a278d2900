// Queries of bundles: rows one after another, as values and texts.
#include <gmock/gmock.h>

#include "tests/device/korvane/library_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConnectionView : public test::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        add({.pid = 1, .title = "One"});
        add({.pid = 2});
        add({.pid = 3, .title = "Three"});
    }
    void reading(const std::function<void(KV3DatabaseConnection&)>& block) {
        library->databaseConnectionAllowingWrites(false, block);
    }
    static std::vector<std::string> rowsOf(KV3QueryResult& result) {
        std::vector<std::string> rows;
        result.enumerateRowsWithBlock([&](const KV3QueryRow& row) {
            rows.push_back(std::to_string(row.int64ForColumnIndex(0)) + " " +
                           std::string(row.stringForColumnIndex(1).value_or("(null)")));
        });
        return rows;
    }

    const std::string titles = "SELECT item_pid, title FROM item_extra ORDER BY item_pid";
};

TEST_F(ConnectionView, EachRowComesOnceAndAgainWhenAskedAgain) {
    reading([&](KV3DatabaseConnection& connection) {
        const auto result = connection.executeQuery(titles);
        EXPECT_THAT(rowsOf(*result), ElementsAre("1 One", "2 (null)", "3 Three"));
        EXPECT_THAT(rowsOf(*result), ElementsAre("1 One", "2 (null)", "3 Three"));
    });
}

TEST_F(ConnectionView, TheFirstValueAndTheRowsMayBothBeAskedFor) {
    reading([&](KV3DatabaseConnection& connection) {
        const auto result = connection.executeQuery(titles);
        EXPECT_EQ(result->int64ValueForFirstRowAndColumn(), 1);
        EXPECT_EQ(rowsOf(*result).size(), 3u);
        EXPECT_EQ(result->int64ValueForFirstRowAndColumn(), 1);
    });
}

TEST_F(ConnectionView, ColumnsThatAreNullOrNotThereAreZeroAndAbsent) {
    reading([&](KV3DatabaseConnection& connection) {
        const auto result =
            connection.executeQuery("SELECT NULL, '', -4294967297, 'text', '12 monkeys'");
        result->enumerateRowsWithBlock([](const KV3QueryRow& row) {
            EXPECT_EQ(row.int64ForColumnIndex(0), 0);
            EXPECT_FALSE(row.stringForColumnIndex(0));
            EXPECT_EQ(row.stringForColumnIndex(1), "");
            EXPECT_EQ(row.int64ForColumnIndex(2), -4294967297);
            EXPECT_EQ(row.intForColumnIndex(2), -1);
            EXPECT_EQ(row.stringForColumnIndex(2), "-4294967297");
            EXPECT_EQ(row.intForColumnIndex(3), 0);
            EXPECT_EQ(row.intForColumnIndex(4), 12);
            for (const int column : {-1, 5, 1000}) {
                EXPECT_EQ(row.int64ForColumnIndex(column), 0);
                EXPECT_FALSE(row.stringForColumnIndex(column));
            }
        });
    });
}

TEST_F(ConnectionView, AQueryWithoutRowsAndOneThatFailsHaveNone) {
    reading([&](KV3DatabaseConnection& connection) {
        for (const char* sql :
             {"SELECT 1 WHERE 0", "no statement", "SELECT 1 / abs(-0) FROM nowhere",
              "DELETE FROM item", "SELECT abs(-9223372036854775807 - 1)"}) {
            const auto result = connection.executeQuery(sql);
            EXPECT_THAT(rowsOf(*result), IsEmpty()) << sql;
            EXPECT_EQ(result->int64ValueForFirstRowAndColumn(), 0) << sql;
        }
    });
}

TEST_F(ConnectionView, AStatementThatFailsOnItsWayKeepsTheRowsBefore) {
    reading([&](KV3DatabaseConnection& connection) {
        const auto result = connection.executeQuery(
            "SELECT item_pid, iif(item_pid < 3, 'x', abs(-9223372036854775807 - 1)) FROM item "
            "ORDER BY item_id");
        EXPECT_THAT(rowsOf(*result), ElementsAre("1 x", "2 x"));
    });
}

TEST_F(ConnectionView, TheBlockMayAskForMoreAndThrow) {
    reading([&](KV3DatabaseConnection& connection) {
        const auto result = connection.executeQuery(titles);
        std::size_t inner = 0;
        result->enumerateRowsWithBlock(
            [&](const KV3QueryRow&) { inner += rowsOf(*connection.executeQuery(titles)).size(); });
        EXPECT_EQ(inner, 9u);
        EXPECT_THROW(result->enumerateRowsWithBlock(
                         [](const KV3QueryRow&) { throw std::runtime_error(""); }),
                     std::runtime_error);
        EXPECT_EQ(rowsOf(*result).size(), 3u);
    });
}

TEST_F(ConnectionView, AResultThatOutlivesItsBlockHasNoRows) {
    std::unique_ptr<KV3QueryResult> kept;
    reading([&](KV3DatabaseConnection& connection) { kept = connection.executeQuery(titles); });
    EXPECT_EQ(kept->int64ValueForFirstRowAndColumn(), 1);
    EXPECT_THAT(rowsOf(*kept), IsEmpty());
    library->reconnectToDatabase();
    EXPECT_THAT(rowsOf(*kept), IsEmpty());
}

TEST_F(ConnectionView, RowsMayBeOpenWhileTheTransactionIsCommitted) {
    std::unique_ptr<KV3QueryResult> kept;
    EXPECT_TRUE(
        library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection& connection) {
            kept = connection.executeQuery(titles);
            return connection.executeUpdateWithParameters("UPDATE item_extra SET title = 'x'", {},
                                                          nullptr);
        }));
    EXPECT_EQ(number("SELECT count(*) FROM item_extra WHERE title = 'x'"), 3);
}

TEST_F(ConnectionView, AnUpdateWithoutParametersChangesOrIsLoggedAndRefused) {
    const std::string renames = "UPDATE item_extra SET title = 'x'";
    library->databaseConnectionAllowingWrites(true, [&](KV3DatabaseConnection& connection) {
        EXPECT_TRUE(connection.executeUpdate(renames));
        EXPECT_TRUE(log.messages().empty());
        EXPECT_FALSE(connection.executeUpdate("UPDATE item_extra SET title = ?"));
        EXPECT_FALSE(connection.executeUpdate("UPDATE nothing SET a = 1"));
    });
    EXPECT_EQ(number("SELECT count(*) FROM item_extra WHERE title = 'x'"), 3);
    reading([&](KV3DatabaseConnection& connection) {
        EXPECT_FALSE(connection.executeUpdate(renames));
    });
    EXPECT_EQ(log.messages().size(), 3u);
}

TEST_F(ConnectionView, AnUpdateIsPartOfItsTransaction) {
    library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection& connection) {
        EXPECT_TRUE(connection.executeUpdate("UPDATE item_extra SET title = 'x'"));
        return false;
    });
    EXPECT_EQ(number("SELECT count(*) FROM item_extra WHERE title = 'x'"), 0);
}

}  // namespace
