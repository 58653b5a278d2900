// Purpose: a connection as bundles see it, and the rows that it reads.
// Calling thread: that of the block that it is handed to.
// Failure: a statement that fails is logged; a query then has no rows, an update answers false.
#pragma once

#include <memory>
#include <vector>

#include "device/korvane/library_log.h"
#include "platform/media_library.h"

namespace common {
class Database;
}

namespace korvane {

class Connections;
class Rows;

class ConnectionView final : public KV3DatabaseConnection {
public:
    // `inTransaction`: the block that gets this view runs inside a transaction of the library's.
    ConnectionView(common::Database& database, Connections& connections, bool allowsWrites,
                   bool inTransaction, LibraryLog log)
        : _database(database),
          _connections(connections),
          _allowsWrites(allowsWrites),
          _inTransaction(inTransaction),
          _log(log) {}
    ~ConnectionView() override;
    ConnectionView(const ConnectionView&) = delete;
    ConnectionView& operator=(const ConnectionView&) = delete;

    // The result has no rows any more once the view is gone.
    std::unique_ptr<KV3QueryResult> executeQuery(std::string_view sql) override;
    bool executeUpdate(std::string_view sql) override;
    bool executeUpdateWithParameters(std::string_view sql,
                                     std::span<const platform::Value> parameters,
                                     platform::OptionalError* error) override;

private:
    bool execute(std::string_view operation, std::string_view sql,
                 std::span<const platform::Value> parameters, platform::OptionalError* error);
    void update(std::string_view sql, std::span<const platform::Value> parameters);

    common::Database& _database;
    Connections& _connections;
    const bool _allowsWrites;
    const bool _inTransaction;
    const LibraryLog _log;
    std::vector<std::weak_ptr<Rows>> _openRows;  // of the results that live
};

}  // namespace korvane
