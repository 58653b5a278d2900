// Purpose: the one value type of property lists, database values and parameters, and its borrowed
//   view.
// Calling thread: any; a Value is shared between threads only while nobody changes it.
// Callback thread: none.
// Ownership: a Value owns what it holds; copies of data, arrays and dictionaries share one
//   immutable body. A ValueView borrows: it lives as long as the row or Value that it was taken
//   from.
// Failure: none throws but for lack of memory; a conversion that makes no sense gives 0, false or
//   "".
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform {

class Value;

using Data = std::vector<std::uint8_t>;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;

// A moment, in seconds since 1970-01-01T00:00:00Z; fractions allowed.
struct Date {
    double secondsSince1970 = 0;
    auto operator<=>(const Date&) const = default;
};

class Value {
public:
    enum class Type : std::uint8_t {
        Null,
        Boolean,
        Signed,
        Unsigned,
        Double,
        String,
        Data,
        Date,
        Array,
        Dictionary
    };

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool v) : _v(v) {}
    Value(int v) : _v(std::int64_t{v}) {}
    Value(unsigned v) : _v(std::uint64_t{v}) {}
    Value(long v) : _v(std::int64_t{v}) {}
    Value(unsigned long v) : _v(std::uint64_t{v}) {}
    Value(long long v) : _v(std::int64_t{v}) {}
    Value(unsigned long long v) : _v(std::uint64_t{v}) {}
    Value(double v) : _v(v) {}
    Value(const char* v) : _v(std::string(v)) {}
    Value(std::string v) : _v(std::move(v)) {}
    Value(std::string_view v) : _v(std::string(v)) {}
    Value(platform::Data v);
    Value(platform::Date v) : _v(v) {}
    Value(platform::Array v);
    Value(platform::Dictionary v);
    // Shares the body; null when there is none.
    explicit Value(std::shared_ptr<const platform::Dictionary> v);
    // Absent becomes null.
    template <typename T>
    Value(const std::optional<T>& v) : Value(v ? Value(*v) : Value()) {}

    Type type() const { return static_cast<Type>(_v.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isBoolean() const { return type() == Type::Boolean; }
    // A signed, unsigned or floating-point number; a boolean is none.
    bool isNumber() const {
        return type() == Type::Signed || type() == Type::Unsigned || type() == Type::Double;
    }
    bool isString() const { return type() == Type::String; }
    bool isData() const { return type() == Type::Data; }
    bool isArray() const { return type() == Type::Array; }
    bool isDictionary() const { return type() == Type::Dictionary; }

    // Numbers convert (out of range is clamped), booleans are 0 or 1, a string gives the decimal
    // number that it begins with; everything else is 0.
    std::int64_t int64Value() const;
    std::uint64_t unsignedValue() const;
    double doubleValue() const;
    // True for true, a number other than 0, and a string that begins with Y, y, T, t or 1-9.
    bool boolValue() const;

    // The body, or null when the value is of another type.
    const std::string* string() const { return std::get_if<std::string>(&_v); }
    const platform::Data* data() const;
    const platform::Date* date() const { return std::get_if<platform::Date>(&_v); }
    const platform::Array* array() const;
    const platform::Dictionary* dictionary() const;
    std::shared_ptr<const platform::Dictionary> sharedDictionary() const;
    // The value under a key, null when there is none or when this is no dictionary.
    const Value& operator[](std::string_view key) const;

    // As a log line prints an object: "(null)", 5, text, {length = 3, bytes = 0x010203}, and
    // arrays and dictionaries over several lines.
    std::string description() const;

    // Numbers are compared by value whatever their types; otherwise types must agree.
    bool operator==(const Value& other) const;

private:
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string,
                 std::shared_ptr<const platform::Data>, platform::Date,
                 std::shared_ptr<const platform::Array>,
                 std::shared_ptr<const platform::Dictionary>>
        _v;
};

// A scalar, string or blob of the row that an enumeration stands on. Nothing is copied until
// value() or a std::string is made of it.
class ValueView {
public:
    constexpr ValueView() = default;
    constexpr explicit ValueView(std::int64_t v) : _type(Value::Type::Signed), _int(v) {}
    constexpr explicit ValueView(double v) : _type(Value::Type::Double), _double(v) {}
    constexpr explicit ValueView(std::string_view v)
        : _type(Value::Type::String),
          _size(static_cast<std::uint32_t>(v.size())),
          _bytes(v.data()) {}
    // A blob.
    ValueView(const std::uint8_t* bytes, std::size_t size)
        : _type(Value::Type::Data),
          _size(static_cast<std::uint32_t>(size)),
          _bytes(reinterpret_cast<const char*>(bytes)) {}

    constexpr Value::Type type() const { return _type; }
    constexpr bool isNull() const { return _type == Value::Type::Null; }
    // 0 for null and for what is no number or numeric string.
    std::int64_t int64Value() const {
        return _type == Value::Type::Signed ? _int : convertedInt64();
    }
    bool boolValue() const { return int64Value() != 0; }
    double doubleValue() const {
        return _type == Value::Type::Double ? _double : static_cast<double>(int64Value());
    }
    // Empty for what is neither string nor blob.
    constexpr std::string_view string() const {
        return _type == Value::Type::String || _type == Value::Type::Data
                   ? std::string_view(_bytes, _size)
                   : std::string_view();
    }
    Value value() const;

private:
    std::int64_t convertedInt64() const;

    Value::Type _type = Value::Type::Null;
    std::uint32_t _size = 0;  // SQLite's largest string or blob stays below 2^31 bytes
    union {
        std::int64_t _int = 0;
        double _double;
        const char* _bytes;
    };
};

}  // namespace platform
