#include "device/korvane/connections.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>

#include "common/sqlite/sqlite_error.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/schema.h"
#include "tests/support/temporary_directory.h"

namespace {

using common::Database;
using korvane::Connections;

class LibraryConnections : public testing::Test {
protected:
    void SetUp() override {
        Database database(_path, {});
        korvane::bringSchemaUpToDate(database);
        database.executeScript("CREATE TABLE t (a)");
    }
    static auto adds(int value) {
        return [value](Database& database) {
            database.execute("INSERT INTO t VALUES (?)", value);
            return true;
        };
    }
    std::int64_t sum(Connections& connections) {
        return connections.reading<std::int64_t>(
            [](Database& database) { return database.int64("SELECT ifnull(sum(a), 0) FROM t"); });
    }

    test::TemporaryDirectory _directory;
    std::string _path = _directory / "library.db";
    Connections _connections{[&] {
        Database(_path, {});
        return korvane::ConnectionSettings{.realPath = _path,
                                           .busyWait = std::chrono::milliseconds(50)};
    }()};
};

TEST_F(LibraryConnections, ABlockThatSaysSoIsCommitted) {
    EXPECT_TRUE(_connections.write(adds(1)));
    EXPECT_EQ(sum(_connections), 1);
}

TEST_F(LibraryConnections, ABlockThatSaysNoIsRolledBack) {
    EXPECT_FALSE(_connections.write([&](Database& database) {
        adds(1)(database);
        return false;
    }));
    EXPECT_EQ(sum(_connections), 0);
}

TEST_F(LibraryConnections, AnExceptionRollsBackAndGoesOn) {
    EXPECT_THROW(_connections.write([&](Database& database) -> bool {
        adds(1)(database);
        throw std::runtime_error("stop");
    }),
                 std::runtime_error);
    EXPECT_EQ(sum(_connections), 0);
    EXPECT_TRUE(_connections.write(adds(2)));
}

TEST_F(LibraryConnections, AnInnerTransactionIsUndoneByItself) {
    EXPECT_TRUE(_connections.write([&](Database& database) {
        adds(1)(database);
        EXPECT_FALSE(_connections.write([&](Database& inner) {
            adds(10)(inner);
            return false;
        }));
        EXPECT_THROW(_connections.write([&](Database& inner) -> bool {
            adds(100)(inner);
            throw std::runtime_error("stop");
        }),
                     std::runtime_error);
        EXPECT_TRUE(_connections.write(adds(1000)));
        return true;
    }));
    EXPECT_EQ(sum(_connections), 1001);
}

TEST_F(LibraryConnections, AReaderInsideAWriterSeesWhatWasWritten) {
    _connections.write([&](Database& database) {
        adds(5)(database);
        EXPECT_EQ(sum(_connections), 5);
        return false;
    });
}

TEST_F(LibraryConnections, AReadingTransactionSeesOneState) {
    _connections.read([&](Database& database) {
        EXPECT_EQ(database.int64("SELECT count(*) FROM t"), 0);
        std::thread writer([&] { EXPECT_TRUE(_connections.write(adds(1))); });
        writer.join();
        EXPECT_EQ(database.int64("SELECT count(*) FROM t"), 0);
        return true;
    });
    EXPECT_EQ(sum(_connections), 1);
}

TEST_F(LibraryConnections, AReaderCannotWrite) {
    EXPECT_THROW(_connections.read([&](Database& database) { return adds(1)(database); }),
                 common::SqliteError);
}

TEST_F(LibraryConnections, ALockHeldByAnotherProcessEndsInABoundedError) {
    Database other(_path, {});
    common::Transaction transaction(other, common::TransactionKind::Write);
    try {
        _connections.write(adds(1));
        FAIL() << "wrote";
    } catch (const common::SqliteError& error) {
        EXPECT_TRUE(error.isBusy());
    }
}

TEST_F(LibraryConnections, ATransactionThatTheEngineGaveUpIsNotCommittedInPieces) {
    EXPECT_THROW(_connections.write([&](Database& database) {
        adds(1)(database);
        database.executeScript("ROLLBACK");  // as after a full disk
        return true;
    }),
                 common::SqliteError);
    EXPECT_EQ(sum(_connections), 0);
}

TEST_F(LibraryConnections, ReconnectingWaitsForRunningTransactions) {
    std::latch inside(1);
    std::atomic<bool> ended = false;
    std::thread writer([&] {
        _connections.write([&](Database& database) {
            inside.count_down();
            for (int i = 0; i < 200; ++i)
                adds(1)(database);
            ended = true;
            return true;
        });
    });
    inside.wait();
    _connections.reconnect();
    EXPECT_TRUE(ended);
    writer.join();
    EXPECT_EQ(sum(_connections), 200);
}

TEST_F(LibraryConnections, ReconnectingInsideATransactionTakesEffectAfterIt) {
    EXPECT_TRUE(_connections.write([&](Database& database) {
        adds(1)(database);
        _connections.reconnect();
        adds(2)(database);
        return true;
    }));
    EXPECT_EQ(sum(_connections), 3);
}

TEST_F(LibraryConnections, ManyThreadsReadWhileOneWritesAndReconnects) {
    constexpr int Rounds = 60;
    std::atomic<bool> ended = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            std::int64_t last = 0;
            while (!ended) {
                // Two rows are written at a time.
                const auto now = sum(_connections);
                EXPECT_EQ(now % 2, 0);
                EXPECT_GE(now, last);
                last = now;
            }
        });
    for (int i = 0; i < Rounds; ++i) {
        EXPECT_TRUE(_connections.write(
            [&](Database& database) { return adds(1)(database) && adds(1)(database); }));
        if (i % 10 == 0)
            _connections.reconnect();
    }
    ended = true;
    for (auto& reader : readers)
        reader.join();
    EXPECT_EQ(sum(_connections), 2 * Rounds);
}

TEST_F(LibraryConnections, JobsForAfterTheCommitRunOnceItIsThere) {
    int runs = 0;
    EXPECT_TRUE(_connections.write([&](Database& database) {
        adds(1)(database);
        _connections.write([&](Database&) {
            _connections.whenCommitted([&] {
                ++runs;
                EXPECT_EQ(sum(_connections), 1);
                // The job may write by itself.
                EXPECT_TRUE(_connections.write(adds(2)));
            });
            return true;
        });
        EXPECT_EQ(runs, 0);
        return true;
    }));
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(sum(_connections), 3);
}

TEST_F(LibraryConnections, JobsOfWhatIsRolledBackAreDropped) {
    int runs = 0;
    const auto job = [&] { ++runs; };
    EXPECT_FALSE(_connections.write([&](Database&) {
        _connections.whenCommitted(job);
        return false;
    }));
    EXPECT_TRUE(_connections.write([&](Database&) {
        _connections.whenCommitted(job);
        _connections.write([&](Database&) {
            _connections.whenCommitted([] { ADD_FAILURE() << "a part that was rolled back"; });
            return false;
        });
        return true;
    }));
    EXPECT_EQ(runs, 1);
    EXPECT_THROW(_connections.write([&](Database&) -> bool {
        _connections.whenCommitted(job);
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_TRUE(_connections.write(adds(1)));
    EXPECT_EQ(runs, 1);
}

}  // namespace
