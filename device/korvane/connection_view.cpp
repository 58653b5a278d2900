#include "device/korvane/connection_view.h"

#include <functional>
#include <optional>

#include "common/sqlite/database.h"
#include "common/sqlite/sqlite_error.h"
#include "device/korvane/connections.h"

namespace korvane {

namespace {

class RowView final : public KV3QueryRow {
public:
    explicit RowView(const common::Statement& row) : _row(row) {}

    std::int64_t int64ForColumnIndex(int column) const override {
        return has(column) ? _row.int64(column) : 0;
    }
    std::int32_t intForColumnIndex(int column) const override {
        return static_cast<std::int32_t>(int64ForColumnIndex(column));
    }
    std::optional<std::string_view> stringForColumnIndex(int column) const override {
        return isNullForColumnIndex(column) ? std::nullopt : std::optional(_row.text(column));
    }
    bool isNullForColumnIndex(int column) const override {
        return !has(column) || _row.isNull(column);
    }

private:
    bool has(int column) const { return column >= 0 && column < _row.columnCount(); }

    const common::Statement& _row;
};

}  // namespace

// The statement of a result, stepped through as its rows are asked for.
class Rows {
public:
    Rows(common::Query query, LibraryLog log) : _query(std::move(query)), _log(log) { step(); }

    std::int64_t firstValue() const { return _firstValue; }
    void enumerate(const std::function<void(const KV3QueryRow&)>& block) {
        if (!_standsOnFirst && _query) {
            (*_query)->reset();
            step();
        }
        for (_standsOnFirst = false; _query && _standsOnRow; step())
            block(RowView(**_query));
    }
    // Gives the statement back.
    void close() { _query.reset(); }

private:
    void step() {
        _standsOnRow = false;
        try {
            _standsOnRow = _query && _query->step();
        } catch (const common::SqliteError& failure) {
            _log.error("executeQuery:", failure.what());
        }
        if (_standsOnFirst && _standsOnRow)
            _firstValue = (*_query)->int64(0);
    }

    std::optional<common::Query> _query;  // none once the connection is not the caller's any more
    const LibraryLog _log;
    bool _standsOnFirst = true;
    bool _standsOnRow = false;
    std::int64_t _firstValue = 0;
};

namespace {

class Result final : public KV3QueryResult {
public:
    explicit Result(std::shared_ptr<Rows> rows) : _rows(std::move(rows)) {}
    void enumerateRowsWithBlock(const std::function<void(const KV3QueryRow&)>& block) override {
        if (_rows)
            _rows->enumerate(block);
    }
    std::int64_t int64ValueForFirstRowAndColumn() override {
        return _rows ? _rows->firstValue() : 0;
    }

private:
    const std::shared_ptr<Rows> _rows;  // null for a query that failed
};

}  // namespace

ConnectionView::~ConnectionView() {
    for (const auto& open : _openRows)
        if (const auto rows = open.lock())
            rows->close();
}

std::unique_ptr<KV3QueryResult> ConnectionView::executeQuery(std::string_view sql) {
    try {
        auto query = _database.prepare(sql);
        if (!query->isReadOnly())
            throw common::SqliteError(common::SqliteReadOnly, "a query does not write");
        auto rows = std::make_shared<Rows>(std::move(query), _log);
        std::erase_if(_openRows, [](const auto& open) { return open.expired(); });
        _openRows.push_back(rows);
        return std::make_unique<Result>(std::move(rows));
    } catch (const common::SqliteError& failure) {
        _log.error("executeQuery:", failure.what());
        return std::make_unique<Result>(nullptr);
    }
}

bool ConnectionView::executeUpdate(std::string_view sql) {
    return execute("executeUpdate:", sql, {}, nullptr);
}

bool ConnectionView::executeUpdateWithParameters(std::string_view sql,
                                                 std::span<const platform::Value> parameters,
                                                 platform::OptionalError* error) {
    return execute("executeUpdate:withParameters:error:", sql, parameters, error);
}

bool ConnectionView::execute(std::string_view operation, std::string_view sql,
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
        _log.error(operation, failure.what());
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
