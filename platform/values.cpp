#include "platform/values.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace platform {
namespace {

constexpr std::size_t maxDescribedBytes = 24;

std::string number(double v) {
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, v).ptr;
    return std::string(buffer, end);
}

template <typename T>
T clamped(double v) {
    if (std::isnan(v))
        return 0;
    if (v <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (v >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(v);
}

template <typename T>
T leadingNumber(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\n'))
        text.remove_prefix(1);
    if (text.starts_with('+'))
        text.remove_prefix(1);
    T result = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
    if (error == std::errc::result_out_of_range)
        return text.starts_with('-') ? std::numeric_limits<T>::lowest()
                                     : std::numeric_limits<T>::max();
    return result;
}

std::string describeData(const Data& data) {
    std::string text = "{length = " + std::to_string(data.size()) + ", bytes = 0x";
    const std::size_t shown = std::min(data.size(), maxDescribedBytes);
    char pair[3];
    for (std::size_t i = 0; i < shown; ++i) {
        std::snprintf(pair, sizeof pair, "%02x", data[i]);
        text += pair;
    }
    return text + (shown < data.size() ? " ...}" : "}");
}

void describe(const Value& value, std::string& out, int indent) {
    const std::string margin(static_cast<std::size_t>(indent + 1) * 4, ' ');
    const std::string closing(static_cast<std::size_t>(indent) * 4, ' ');
    if (const Array* array = value.array()) {
        out += "(\n";
        for (std::size_t i = 0; i < array->size(); ++i) {
            out += margin;
            describe((*array)[i], out, indent + 1);
            out += i + 1 < array->size() ? ",\n" : "\n";
        }
        out += closing + ")";
    } else if (const Dictionary* dictionary = value.dictionary()) {
        out += "{\n";
        for (const auto& [key, element] : *dictionary) {
            out += margin + key + " = ";
            describe(element, out, indent + 1);
            out += ";\n";
        }
        out += closing + "}";
    } else {
        out += value.description();
    }
}

}  // namespace

Value::Value(platform::Data v) : _v(std::make_shared<const platform::Data>(std::move(v))) {}
Value::Value(platform::Array v) : _v(std::make_shared<const platform::Array>(std::move(v))) {}
Value::Value(platform::Dictionary v)
    : _v(std::make_shared<const platform::Dictionary>(std::move(v))) {}
Value::Value(std::shared_ptr<const platform::Dictionary> v) {
    if (v)
        _v = std::move(v);
}

std::int64_t Value::int64Value() const {
    switch (type()) {
        case Type::Boolean:
            return std::get<bool>(_v) ? 1 : 0;
        case Type::Signed:
            return std::get<std::int64_t>(_v);
        case Type::Unsigned: {
            // The bit pattern: an id sent as an unsigned number stays the same id.
            return static_cast<std::int64_t>(std::get<std::uint64_t>(_v));
        }
        case Type::Double:
            return clamped<std::int64_t>(std::get<double>(_v));
        case Type::String:
            return leadingNumber<std::int64_t>(std::get<std::string>(_v));
        default:
            return 0;
    }
}

std::uint64_t Value::unsignedValue() const {
    switch (type()) {
        case Type::Double:
            return clamped<std::uint64_t>(std::get<double>(_v));
        case Type::String:
            return leadingNumber<std::uint64_t>(std::get<std::string>(_v));
        default:
            return static_cast<std::uint64_t>(int64Value());
    }
}

double Value::doubleValue() const {
    switch (type()) {
        case Type::Double:
            return std::get<double>(_v);
        case Type::Unsigned:
            return static_cast<double>(std::get<std::uint64_t>(_v));
        case Type::String:
            return leadingNumber<double>(std::get<std::string>(_v));
        default:
            return static_cast<double>(int64Value());
    }
}

bool Value::boolValue() const {
    if (type() == Type::Double)
        return std::get<double>(_v) != 0;
    if (const std::string* text = string())
        return !text->empty() &&
               std::string_view("YyTt123456789").find(text->front()) != std::string_view::npos;
    return int64Value() != 0;
}

const Data* Value::data() const {
    const auto* body = std::get_if<std::shared_ptr<const platform::Data>>(&_v);
    return body ? body->get() : nullptr;
}

const Array* Value::array() const {
    const auto* body = std::get_if<std::shared_ptr<const platform::Array>>(&_v);
    return body ? body->get() : nullptr;
}

const Dictionary* Value::dictionary() const {
    const auto* body = std::get_if<std::shared_ptr<const platform::Dictionary>>(&_v);
    return body ? body->get() : nullptr;
}

std::shared_ptr<const Dictionary> Value::sharedDictionary() const {
    const auto* body = std::get_if<std::shared_ptr<const platform::Dictionary>>(&_v);
    return body ? *body : nullptr;
}

const Value& Value::operator[](std::string_view key) const {
    static const Value absent;
    const platform::Dictionary* body = dictionary();
    if (!body)
        return absent;
    const auto found = body->find(key);
    return found == body->end() ? absent : found->second;
}

std::string Value::description() const {
    switch (type()) {
        case Type::Null:
            return "(null)";
        case Type::Boolean:
            return std::get<bool>(_v) ? "1" : "0";
        case Type::Signed:
            return std::to_string(std::get<std::int64_t>(_v));
        case Type::Unsigned:
            return std::to_string(std::get<std::uint64_t>(_v));
        case Type::Double:
            return number(std::get<double>(_v));
        case Type::String:
            return std::get<std::string>(_v);
        case Type::Data:
            return describeData(*data());
        case Type::Date:
            return number(date()->secondsSince1970);
        default: {
            std::string text;
            describe(*this, text, 0);
            return text;
        }
    }
}

bool Value::operator==(const Value& other) const {
    if (isNumber() && other.isNumber()) {
        if (type() == Type::Double || other.type() == Type::Double)
            return doubleValue() == other.doubleValue();
        const bool negative = type() == Type::Signed && int64Value() < 0;
        const bool otherNegative = other.type() == Type::Signed && other.int64Value() < 0;
        return negative == otherNegative && unsignedValue() == other.unsignedValue();
    }
    if (type() != other.type())
        return false;
    switch (type()) {
        case Type::Data:
            return *data() == *other.data();
        case Type::Array:
            return *array() == *other.array();
        case Type::Dictionary:
            return *dictionary() == *other.dictionary();
        default:
            return _v == other._v;
    }
}

std::int64_t ValueView::convertedInt64() const {
    switch (_type) {
        case Value::Type::Double:
            return clamped<std::int64_t>(_double);
        case Value::Type::String:
            return leadingNumber<std::int64_t>(string());
        default:
            return 0;
    }
}

Value ValueView::value() const {
    switch (_type) {
        case Value::Type::Signed:
            return Value(_int);
        case Value::Type::Double:
            return Value(_double);
        case Value::Type::String:
            return Value(string());
        case Value::Type::Data:
            return Value(Data(string().begin(), string().end()));
        default:
            return Value();
    }
}

}  // namespace platform
