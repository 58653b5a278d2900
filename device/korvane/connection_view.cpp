#include "device/korvane/connection_view.h"

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"

namespace korvane {

namespace {

// The rows are read when the query runs, so a result may outlive its connection.
class FirstRow final : public KV3QueryResult {
public:
    explicit FirstRow(std::int64_t value) : _value(value) {}
    std::int64_t int64ValueForFirstRowAndColumn() override { return _value; }

private:
    const std::int64_t _value;
};

}  // namespace

std::unique_ptr<KV3QueryResult> ConnectionView::executeQuery(std::string_view sql) {
    try {
        auto query = _database.prepare(sql);
        if (!query->isReadOnly())
            throw common::SqliteError(common::SqliteReadOnly, "a query does not write");
        return std::make_unique<FirstRow>(query.step() ? query->int64(0) : 0);
    } catch (const common::SqliteError& failure) {
        _log.error("executeQuery:", failure.what());
        return std::make_unique<FirstRow>(0);
    }
}

bool ConnectionView::executeUpdateWithParameters(std::string_view sql,
                                                 std::span<const platform::Value> parameters,
                                                 platform::OptionalError* error) {
    try {
        if (!_allowsWrites)
            throw common::SqliteError(common::SqliteReadOnly, "this connection does not write");
        if (_inTransaction && !_database.inTransaction())
            throw common::SqliteError(common::SqliteAborted,
                                      "the transaction was rolled back by the database");
        // A statement alone is a transaction too, with its revisions.
        if (_inTransaction)
            update(sql, parameters);
        else
            _connections.write([&](common::Database&) {
                update(sql, parameters);
                return true;
            });
        return true;
    } catch (const common::SqliteError& failure) {
        _log.error("executeUpdate:withParameters:error:", failure.what());
        if (error)
            *error = failure.platformError();
        return false;
    }
}

void ConnectionView::update(std::string_view sql, std::span<const platform::Value> parameters) {
    auto statement = _database.prepare(sql);
    if (static_cast<std::size_t>(statement->parameterCount()) != parameters.size())
        throw common::SqliteError(common::SqliteOutOfRange, "wrong number of parameters");
    int index = 0;
    for (const platform::Value& parameter : parameters)
        statement->bind(++index, parameter, common::BindLifetime::Borrowed);
    statement.run();
}

}  // namespace korvane
