#include "common/sqlite/statement.h"

#include <sqlite3.h>

#include <limits>

#include "common/sqlite/sqlite_error.h"

namespace common {

namespace {

// The engine's own marks for "copy it" and "it stays"; the casts are its documented form.
sqlite3_destructor_type destructorFor(BindLifetime lifetime) {
    return lifetime == BindLifetime::Copied ? SQLITE_TRANSIENT : SQLITE_STATIC;
}

}  // namespace

void Statement::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

Statement::Statement(sqlite3* connection, std::string_view sql, bool keptLong) {
    if (sql.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        throw SqliteError(SQLITE_TOOBIG, "statement too long");
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    const int result = sqlite3_prepare_v3(connection, sql.data(), static_cast<int>(sql.size()),
                                          keptLong ? SQLITE_PREPARE_PERSISTENT : 0, &raw, &tail);
    _statement.reset(raw);
    if (result != SQLITE_OK)
        throw SqliteError::ofConnection(connection, sql);
    const std::string_view rest(tail, static_cast<std::size_t>(sql.data() + sql.size() - tail));
    if (!raw || rest.find_first_not_of(" \t\r\n;") != std::string_view::npos)
        throw SqliteError(SQLITE_MISUSE,
                          "not exactly one statement: " + std::string(sql.substr(0, 200)));
    _columnCount = sqlite3_column_count(raw);
}

int Statement::parameterCount() const {
    return sqlite3_bind_parameter_count(_statement.get());
}

bool Statement::isReadOnly() const {
    return sqlite3_stmt_readonly(_statement.get()) != 0;
}

void Statement::requireParameterCount(std::size_t given) const {
    if (static_cast<std::size_t>(parameterCount()) != given)
        throw SqliteError(SQLITE_RANGE, "wrong number of parameters for: " +
                                            std::string(sqlite3_sql(_statement.get())));
}

void Statement::checkBound(int result) const {
    if (result != SQLITE_OK)
        throw SqliteError::ofConnection(sqlite3_db_handle(_statement.get()),
                                        sqlite3_sql(_statement.get()));
}

void Statement::bind(int index, std::nullptr_t) {
    checkBound(sqlite3_bind_null(_statement.get(), index));
}

void Statement::bind(int index, std::int64_t value) {
    checkBound(sqlite3_bind_int64(_statement.get(), index, value));
}

void Statement::bind(int index, double value) {
    checkBound(sqlite3_bind_double(_statement.get(), index, value));
}

void Statement::bind(int index, std::string_view text, BindLifetime lifetime) {
    // A null pointer would bind NULL; an empty text is not NULL.
    checkBound(sqlite3_bind_text64(_statement.get(), index, text.data() ? text.data() : "",
                                   text.size(), destructorFor(lifetime), SQLITE_UTF8));
}

void Statement::bind(int index, std::span<const std::uint8_t> blob, BindLifetime lifetime) {
    if (blob.empty())
        checkBound(sqlite3_bind_zeroblob(_statement.get(), index, 0));
    else
        checkBound(sqlite3_bind_blob64(_statement.get(), index, blob.data(), blob.size(),
                                       destructorFor(lifetime)));
}

void Statement::bind(int index, const platform::Value& value, BindLifetime lifetime) {
    using Type = platform::Value::Type;
    switch (value.type()) {
        case Type::Null:
            return bind(index, nullptr);
        case Type::Boolean:
            return bind(index, std::int64_t{value.boolValue()});
        case Type::Signed:
        case Type::Unsigned:
            return bind(index, value.int64Value());
        case Type::Double:
            return bind(index, value.doubleValue());
        case Type::String:
            return bind(index, std::string_view(*value.string()), lifetime);
        case Type::Data:
            return bind(index, std::span<const std::uint8_t>(*value.data()), lifetime);
        case Type::Date:
            return bind(index, value.date()->secondsSince1970);
        case Type::Array:
        case Type::Dictionary:
            break;
    }
    throw SqliteError(SQLITE_MISMATCH, "an array or dictionary has no form in the database");
}

bool Statement::step() {
    switch (sqlite3_step(_statement.get())) {
        case SQLITE_ROW:
            return true;
        case SQLITE_DONE:
            return false;
        default: {
            auto error = SqliteError::ofConnection(sqlite3_db_handle(_statement.get()),
                                                   sqlite3_sql(_statement.get()));
            reset();
            throw error;
        }
    }
}

void Statement::reset() noexcept {
    sqlite3_reset(_statement.get());
    sqlite3_clear_bindings(_statement.get());
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(_statement.get(), column) == SQLITE_NULL;
}

std::int64_t Statement::int64(int column) const {
    return sqlite3_column_int64(_statement.get(), column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(_statement.get(), column);
}

std::string_view Statement::text(int column) const {
    const auto* bytes = sqlite3_column_text(_statement.get(), column);
    if (!bytes)
        return {};
    return {reinterpret_cast<const char*>(bytes),
            static_cast<std::size_t>(sqlite3_column_bytes(_statement.get(), column))};
}

std::span<const std::uint8_t> Statement::blob(int column) const {
    const auto* bytes =
        static_cast<const std::uint8_t*>(sqlite3_column_blob(_statement.get(), column));
    if (!bytes)
        return {};
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(_statement.get(), column))};
}

// The row's own value, which is one thread's: each look by column would check the row again.
platform::ValueView Statement::view(int column) const {
    sqlite3_value* const value = sqlite3_column_value(_statement.get(), column);
    const auto size = [value] { return static_cast<std::size_t>(sqlite3_value_bytes(value)); };
    switch (sqlite3_value_type(value)) {
        case SQLITE_INTEGER:
            return platform::ValueView(static_cast<std::int64_t>(sqlite3_value_int64(value)));
        case SQLITE_FLOAT:
            return platform::ValueView(sqlite3_value_double(value));
        case SQLITE_TEXT: {
            const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
            return platform::ValueView(text ? std::string_view(text, size()) : std::string_view());
        }
        case SQLITE_BLOB: {
            const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_value_blob(value));
            return {bytes, bytes ? size() : 0};
        }
        default:
            return {};
    }
}

platform::Value Statement::value(int column) const {
    return view(column).value();
}

std::optional<std::int64_t> Statement::optionalInt64(int column) const {
    return isNull(column) ? std::nullopt : std::optional(int64(column));
}

std::optional<std::string> Statement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(std::string(text(column)));
}

std::string Statement::columnName(int column) const {
    const char* name = sqlite3_column_name(_statement.get(), column);
    return name ? name : "";
}

}  // namespace common
