#include "device/korvane/library.h"

#include <filesystem>

#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/account_cache.h"
#include "device/korvane/database_health.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

using platform::Value;

class LibraryCore : public test::LibraryTest {
protected:
    void reopen() {
        library.reset();
        open();
    }
    std::string realPath() { return files.realPath(korvane::DefaultDatabasePath); }
};

TEST_F(LibraryCore, PropertiesComeBackWithTheirTypes) {
    for (const Value& value : {Value(true), Value(false), Value(-7), Value(1.5), Value("text"),
                               Value(platform::Data{0, 1}), Value(platform::Date{12.5})}) {
        EXPECT_TRUE(library->setValueForDatabaseProperty(value, "key"));
        const Value read = library->valueForDatabaseProperty("key");
        EXPECT_EQ(read.type(), value.type());
        EXPECT_EQ(read, value);
    }
    EXPECT_TRUE(library->setValueForDatabaseProperty(Value(), "key"));
    EXPECT_TRUE(library->valueForDatabaseProperty("key").isNull());
    EXPECT_FALSE(library->setValueForDatabaseProperty(Value(platform::Array{}), "key"));
}

TEST_F(LibraryCore, PropertiesAndUidOutliveTheProcess) {
    const std::string uid = library->uid();
    EXPECT_EQ(uid.size(), 32u);
    library->setValueForDatabaseProperty("17", "KVSyncClientSyncAnchor");
    reopen();
    EXPECT_EQ(library->uid(), uid);
    EXPECT_EQ(library->valueForDatabaseProperty("KVSyncClientSyncAnchor"), Value("17"));
}

TEST_F(LibraryCore, ADatabasePropertyIsReadInsideItsTransaction) {
    EXPECT_FALSE(library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        library->setValueForDatabaseProperty(1, "key");
        EXPECT_EQ(library->valueForDatabaseProperty("key"), Value(1));
        return false;
    }));
    EXPECT_TRUE(library->valueForDatabaseProperty("key").isNull());
}

TEST_F(LibraryCore, BundlesRunTheirOwnStatements) {
    EXPECT_TRUE(
        library->performReadOnlyDatabaseTransactionWithBlock([](KV3DatabaseConnection& connection) {
            EXPECT_EQ(connection
                          .executeQuery("SELECT base_location_id from base_location where path = "
                                        "'CloudAssets'")
                          ->int64ValueForFirstRowAndColumn(),
                      400);
            EXPECT_EQ(connection.executeQuery("no statement")->int64ValueForFirstRowAndColumn(), 0);
            EXPECT_FALSE(connection.executeUpdateWithParameters("DELETE FROM item", {}, nullptr));
            return true;
        }));
    const Value parameters[] = {Value(5), Value(-3), Value(platform::Data{1})};
    library->databaseConnectionAllowingWrites(true, [&](KV3DatabaseConnection& connection) {
        platform::OptionalError error;
        EXPECT_TRUE(connection.executeUpdateWithParameters(
            "INSERT OR REPLACE INTO kenning_metadata (kenning_id, checksum, data) VALUES (?, ?, "
            "?);",
            parameters, &error));
        EXPECT_FALSE(connection.executeUpdateWithParameters("DELETE FROM kenning_metadata",
                                                            parameters, &error));
        EXPECT_TRUE(error);
    });
    EXPECT_EQ(number("SELECT checksum FROM kenning_metadata WHERE kenning_id = 5"), -3);
}

TEST_F(LibraryCore, StatementsOfBundlesGiveRevisionsEachTime) {
    add({.pid = 1});
    auto last = library->currentRevision();
    for (int i = 1; i <= 3; ++i) {
        library->databaseConnectionAllowingWrites(true, [&](KV3DatabaseConnection& connection) {
            const Value disc(i);
            connection.executeUpdateWithParameters("UPDATE item SET disc_number = ?", {&disc, 1},
                                                   nullptr);
        });
        EXPECT_GT(library->currentRevision(), last);
        last = library->currentRevision();
    }
}

TEST_F(LibraryCore, RevisionsDoNotRepeatAfterARollback) {
    add({.pid = 1});
    const auto before = library->currentRevision();
    library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection& connection) {
        connection.executeUpdateWithParameters("UPDATE item SET disc_number = 9", {}, nullptr);
        return false;
    });
    EXPECT_EQ(library->currentRevision(), before);
    reopen();
    EXPECT_EQ(library->currentRevision(), before);
}

TEST_F(LibraryCore, ABundlesExceptionRollsBackAndGoesOn) {
    EXPECT_THROW(library->performDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) -> bool {
        library->setValueForDatabaseProperty(1, "key");
        throw std::runtime_error("stop");
    }),
                 std::runtime_error);
    EXPECT_TRUE(library->valueForDatabaseProperty("key").isNull());
}

TEST_F(LibraryCore, ALockedDatabaseAnswersFalse) {
    common::Database other(realPath(), {});
    library->connections().use(true, [](common::Database& database) {
        database.executeScript("PRAGMA busy_timeout = 10");
    });
    common::Transaction transaction(other, common::TransactionKind::Write);
    EXPECT_FALSE(library->setValueForDatabaseProperty(1, "key"));
    EXPECT_FALSE(log.messages().empty());
}

TEST_F(LibraryCore, ACopyOfTheDatabaseGetsANewUid) {
    const std::string uid = library->uid();
    library->setValueForDatabaseProperty("17", "KVSyncClientSyncAnchor");
    library.reset();
    const std::string copy = realPath() + ".copy";
    std::filesystem::copy_file(realPath(), copy);
    std::filesystem::rename(copy, realPath());
    open();
    EXPECT_NE(library->uid(), uid);
    EXPECT_TRUE(library->valueForDatabaseProperty("KVSyncClientSyncAnchor").isNull());
}

TEST_F(LibraryCore, ADatabaseRestoredFromAnOlderStateGetsANewUid) {
    add({.pid = 1});
    const std::string uid = library->uid();
    library.reset();
    const std::string backup = directory / "backup";
    std::filesystem::copy_file(realPath(), backup);
    open();
    EXPECT_EQ(library->uid(), uid);
    add({.pid = 2});
    library.reset();
    // The same file, with the older contents.
    std::filesystem::copy_file(backup, realPath(),
                               std::filesystem::copy_options::overwrite_existing);
    open();
    const std::string restored = library->uid();
    EXPECT_NE(restored, uid);
    // The same older contents once more: nothing tells them from what they were before.
    library.reset();
    std::filesystem::copy_file(backup, realPath(),
                               std::filesystem::copy_options::overwrite_existing);
    open();
    EXPECT_NE(library->uid(), uid);
    EXPECT_NE(library->uid(), restored);
}

TEST_F(LibraryCore, ADamagedDatabaseIsToldAndCanBeSetAside) {
    for (int pid = 1; pid <= 200; ++pid)
        add({.pid = pid, .title = "title"});
    library.reset();
    {
        std::fstream file(realPath(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(8192);
        const std::string garbage(16384, '\x5a');
        file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
    }
    platform::OptionalError error;
    EXPECT_FALSE(korvane::Library::open(configuration(), &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, korvane::LibraryErrorDomain);
    EXPECT_EQ(error->code, korvane::LibraryErrorDamaged);
    EXPECT_FALSE(
        korvane::setDatabaseAside(files, korvane::DefaultDatabasePath, system.absoluteTime()));
    EXPECT_TRUE(
        files.fileExists(std::string(korvane::DefaultDatabasePath) + ".damaged-1700000000"));
    open();
    EXPECT_EQ(number("SELECT count(*) FROM item"), 0);
}

TEST_F(LibraryCore, RowsThatGotLostAreMissed) {
    add({.pid = 1});
    add({.pid = 2});
    library.reset();
    {
        common::Database database(realPath(), {});
        database.executeScript("DROP TRIGGER item_gone; DELETE FROM item WHERE item_pid = 1");
    }
    platform::OptionalError error;
    EXPECT_FALSE(korvane::Library::open(configuration(), &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, korvane::LibraryErrorDamaged);
}

TEST_F(LibraryCore, AccountsAreKeptInADatabaseOfTheirOwn) {
    EXPECT_FALSE(library->accountCacheDatabase().vantorIDForDSID(5));
    EXPECT_EQ(library->accounts().add({5, "name"}), std::nullopt);
    reopen();
    EXPECT_EQ(library->accountCacheDatabase().vantorIDForDSID(5), "name");
    EXPECT_FALSE(library->accountCacheDatabase().vantorIDForDSID(0));
    EXPECT_TRUE(files.fileExists(korvane::DefaultAccountDatabasePath));
}

TEST_F(LibraryCore, AccountsAreAddedListedAndRemoved) {
    korvane::AccountCache& accounts = library->accounts();
    EXPECT_EQ(accounts.add({7, "seven"}), std::nullopt);
    EXPECT_EQ(accounts.add({5, "five"}), std::nullopt);
    EXPECT_EQ(accounts.add({7, "another"}), std::nullopt);
    const auto known = accounts.list();
    ASSERT_EQ(known.size(), 2u);
    EXPECT_EQ(known[0].account, 5);
    EXPECT_EQ(known[1].name, "another");
    EXPECT_EQ(accounts.remove(5), std::nullopt);
    const auto error = accounts.remove(5);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, korvane::LibraryErrorNotFound);
    EXPECT_EQ(error->text(), "there is no account 5");
    EXPECT_EQ(accounts.list().size(), 1u);
}

TEST_F(LibraryCore, AnAccountWithoutANumberOrANameIsRefused) {
    korvane::AccountCache& accounts = library->accounts();
    for (const std::int64_t number : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
        const auto error = accounts.add({number, "name"});
        ASSERT_TRUE(error) << number;
        EXPECT_EQ(error->text(), "an account's number is 1 or more");
        EXPECT_TRUE(accounts.remove(number));
    }
    for (const std::string& name :
         {std::string(), std::string(257, 'x'), std::string("a\x01"), std::string("\xff")})
        EXPECT_TRUE(accounts.add({5, name}));
    EXPECT_TRUE(accounts.list().empty());
}

TEST_F(LibraryCore, ChangesAreToldToObservers) {
    library->notifyContentsDidChange();
    library->notifyDisplayValuesPropertyDidChange();
    EXPECT_EQ(system.center.posted,
              (std::vector<std::string>{"KV3KorvaneContentsDidChangeNotification",
                                        "KV3KorvaneDisplayValuesDidChangeNotification"}));
}

}  // namespace
