#include "device/korvane/account_cache.h"

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"

namespace korvane {

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

void AccountCache::setVantorIDForDSID(const std::string& vantorID, std::int64_t accountID) {
    if (accountID == 0)
        return;
    std::lock_guard lock(_mutex);
    _database->execute(
        "INSERT INTO account (account_id, vantor_id) VALUES (?1, ?2) ON CONFLICT (account_id) DO "
        "UPDATE SET vantor_id = ?2 WHERE vantor_id <> ?2",
        accountID, vantorID);
}

}  // namespace korvane
