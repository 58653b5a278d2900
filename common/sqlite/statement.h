// Purpose: a prepared statement: typed binds and column reads.
// Calling thread: that of its connection; one at a time.
// Ownership: a Statement owns the engine's object. Views of columns live until the next step,
//            reset or the statement's end.
// Failure: SqliteError is thrown by everything that can fail.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/values.h"

struct sqlite3;
struct sqlite3_stmt;

namespace common {

// Whether a bound text or blob is copied, or lives until the statement is reset.
enum class BindLifetime { Copied, Borrowed };

class Statement {
public:
    // Exactly one statement; trailing text is an error.
    Statement(sqlite3* connection, std::string_view sql, bool keptLong);

    // Parameters count from 1, columns from 0.
    int parameterCount() const;
    int columnCount() const { return _columnCount; }
    bool isReadOnly() const;

    void bind(int index, std::nullptr_t);
    void bind(int index, std::int64_t value);
    void bind(int index, int value) { bind(index, std::int64_t{value}); }
    void bind(int index, unsigned value) { bind(index, std::int64_t{value}); }
    void bind(int index, bool value) { bind(index, std::int64_t{value}); }
    void bind(int index, double value);
    void bind(int index, std::string_view text, BindLifetime lifetime = BindLifetime::Copied);
    void bind(int index, std::span<const std::uint8_t> blob,
              BindLifetime lifetime = BindLifetime::Copied);
    // Null, booleans (as 0 or 1), numbers, strings, data and dates (as seconds since 1970). Arrays
    // and dictionaries have no form here: SQLITE_MISMATCH.
    void bind(int index, const platform::Value& value,
              BindLifetime lifetime = BindLifetime::Copied);
    void bind(int index, const std::string& text, BindLifetime lifetime = BindLifetime::Copied) {
        bind(index, std::string_view(text), lifetime);
    }
    void bind(int index, const char* text, BindLifetime lifetime = BindLifetime::Copied) {
        bind(index, std::string_view(text), lifetime);
    }
    void bind(int index, const platform::Data& blob, BindLifetime lifetime = BindLifetime::Copied) {
        bind(index, std::span<const std::uint8_t>(blob), lifetime);
    }
    void bind(int index, std::uint64_t) = delete;  // there are no unsigned columns; convert first
    template <typename T>
    void bind(int index, const std::optional<T>& value) {
        if (value)
            bind(index, *value);
        else
            bind(index, nullptr);
    }

    // Binds every parameter, in order. A wrong count is an error.
    template <typename... Values>
    void bindAll(const Values&... values) {
        requireParameterCount(sizeof...(values));
        int index = 0;
        (bind(++index, values), ...);
    }
    // As bindAll; texts and blobs must live until the statement is reset.
    template <typename... Values>
    void bindAllBorrowed(const Values&... values) {
        requireParameterCount(sizeof...(values));
        int index = 0;
        (bindBorrowed(++index, values), ...);
    }

    // True: stands on a row. False: the end.
    bool step();
    // Ready for another run; the bindings are cleared.
    void reset() noexcept;

    bool isNull(int column) const;
    // 0 for null.
    std::int64_t int64(int column) const;
    double real(int column) const;
    // Empty for null.
    std::string_view text(int column) const;
    std::span<const std::uint8_t> blob(int column) const;
    platform::ValueView view(int column) const;
    platform::Value value(int column) const;
    std::optional<std::int64_t> optionalInt64(int column) const;
    std::optional<std::string> optionalText(int column) const;
    // The name that a column has in the result.
    std::string columnName(int column) const;

private:
    void requireParameterCount(std::size_t given) const;
    void checkBound(int result) const;
    template <typename T>
    void bindBorrowed(int index, const T& value) {
        if constexpr (std::is_convertible_v<const T&, std::string_view> ||
                      std::is_same_v<T, platform::Data> || std::is_same_v<T, platform::Value> ||
                      std::is_same_v<T, std::span<const std::uint8_t>>)
            bind(index, value, BindLifetime::Borrowed);
        else
            bind(index, value);
    }

    struct Finalize {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> _statement;
    int _columnCount = 0;
};

}  // namespace common
