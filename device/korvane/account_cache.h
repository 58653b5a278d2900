// Purpose: the names of the store accounts that items were bought with, in a database of its own.
// Calling thread: any.
// Failure: setting throws SqliteError; a lookup that fails finds nothing.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "device/korvane/library_log.h"
#include "platform/media_library.h"

namespace common {
class Database;
}

namespace korvane {

class AccountCache final : public KV3AccountCacheDatabase {
public:
    // A path of this machine; the file is made when it is missing. Throws SqliteError.
    AccountCache(const std::string& realPath, LibraryLog log);
    ~AccountCache() override;

    std::optional<std::string> vantorIDForDSID(std::int64_t accountID) override;
    // Account 0 stands for none and is not kept.
    void setVantorIDForDSID(const std::string& vantorID, std::int64_t accountID);

private:
    const LibraryLog _log;
    std::mutex _mutex;  // protects _database
    std::unique_ptr<common::Database> _database;
};

}  // namespace korvane
