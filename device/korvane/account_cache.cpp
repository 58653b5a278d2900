#include "device/korvane/account_cache.h"

#include <fmt/format.h>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/owner_edit.h"

namespace korvane {

namespace {

constexpr std::size_t LongestName = 256;

}  // namespace

using platform::OptionalError;

AccountCache::AccountCache(const std::string& realPath, LibraryLog log)
    : _log(log),
      _database(std::make_unique<common::Database>(realPath, common::DatabaseOptions{})) {
    _database->executeScript(
        "CREATE TABLE IF NOT EXISTS account ("
        "account_id INTEGER PRIMARY KEY, vantor_id TEXT NOT NULL)");
}

AccountCache::~AccountCache() = default;

std::optional<std::string> AccountCache::vantorIDForDSID(std::int64_t accountID) {
    std::lock_guard lock(_mutex);
    try {
        auto row =
            _database->query("SELECT vantor_id FROM account WHERE account_id = ?", accountID);
        if (row.step())
            return std::string(row->text(0));
    } catch (const common::SqliteError& error) {
        _log.error("vantorIDForDSID:", error.what());
    }
    return std::nullopt;
}

OptionalError AccountCache::add(const KnownAccount& account) {
    if (account.account <= 0)
        return refusedEdit("an account's number is 1 or more");
    if (account.name.empty() || !isPlainText(account.name, LongestName))
        return refusedEdit(fmt::format(
            "an account's name is 1 to {} bytes of text without control characters", LongestName));
    std::lock_guard lock(_mutex);
    _database->execute(
        "INSERT INTO account (account_id, vantor_id) VALUES (?1, ?2) ON CONFLICT (account_id) DO "
        "UPDATE SET vantor_id = ?2 WHERE vantor_id <> ?2",
        account.account, account.name);
    return std::nullopt;
}

OptionalError AccountCache::remove(std::int64_t accountID) {
    std::lock_guard lock(_mutex);
    if (_database->execute("DELETE FROM account WHERE account_id = ?", accountID) == 0)
        return notFound(fmt::format("there is no account {}", accountID));
    return std::nullopt;
}

std::vector<KnownAccount> AccountCache::list() {
    std::lock_guard lock(_mutex);
    std::vector<KnownAccount> accounts;
    auto rows = _database->query("SELECT account_id, vantor_id FROM account ORDER BY account_id");
    while (rows.step())
        accounts.push_back({rows->int64(0), std::string(rows->text(1))});
    return accounts;
}

}  // namespace korvane
