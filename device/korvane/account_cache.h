// Purpose: the names of the store accounts that items were bought with, in a database of its own.
// Calling thread: any.
// Failure: a lookup that fails finds nothing; adding, removing and listing throw SqliteError, or
//          answer with an error of LibraryErrorDomain that says what is wrong.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/korvane/library_log.h"
#include "platform/errors.h"
#include "platform/media_library.h"

namespace common {
class Database;
}

namespace korvane {

struct KnownAccount {
    std::int64_t account = 0;  // the store's number of it, 1 or more
    std::string name;          // not empty, at most 256 bytes of plain text
};

class AccountCache final : public KV3AccountCacheDatabase {
public:
    // A path of this machine; the file is made when it is missing. Throws SqliteError.
    AccountCache(const std::string& realPath, LibraryLog log);
    ~AccountCache() override;

    std::optional<std::string> vantorIDForDSID(std::int64_t accountID) override;
    // Takes the place of one of the same number.
    platform::OptionalError add(const KnownAccount& account);
    platform::OptionalError remove(std::int64_t accountID);
    // In the order of their numbers.
    std::vector<KnownAccount> list();

private:
    const LibraryLog _log;
    std::mutex _mutex;  // protects _database
    std::unique_ptr<common::Database> _database;
};

}  // namespace korvane
