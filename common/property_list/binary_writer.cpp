// The binary format; binary_reader.cpp describes it. Equal texts are written once.
#include <bit>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "common/property_list/binary_format.h"
#include "common/property_list/formats.h"
#include "common/property_list/limits.h"
#include "common/utf8.h"

namespace common::property_list {
namespace {

using platform::Data;
using platform::Error;
using platform::Value;

constexpr unsigned bytesFor(std::uint64_t number) {
    return number <= 0xff ? 1 : number <= 0xffff ? 2 : number <= 0xffffffff ? 4 : 8;
}

class BinaryWriter {
public:
    explicit BinaryWriter(Error& reason) : _reason(reason) {}

    bool writeDocument(const Value& root) {
        std::size_t ignored;
        if (!collect(root, 0, ignored))
            return false;
        _referenceSize = bytesFor(_objects.size() - 1);
        _out.assign(binaryMagic.begin(), binaryMagic.end());
        std::vector<std::uint64_t> offsets;
        offsets.reserve(_objects.size());
        for (const Object& object : _objects) {
            offsets.push_back(_out.size());
            if (!write(object))
                return false;
            if (_out.size() > maxBytes)
                return refuse(tooLarge());
        }
        writeTable(offsets);
        return _out.size() <= maxBytes || refuse(tooLarge());
    }

    Data takeBytes() { return std::move(_out); }

private:
    // A value or, when there is none, a text; borrowed from what is written.
    struct Object {
        const Value* value = nullptr;
        std::string_view text;
        std::vector<std::size_t> references;  // a dictionary's keys, then its elements
    };

    bool refuse(Error reason) {
        _reason = std::move(reason);
        return false;
    }

    // Numbers a value and what it holds, a container before its contents.
    bool collect(const Value& value, int depth, std::size_t& number) {
        if (++_values > maxValues)
            return refuse(tooManyValues());
        if (const std::string* text = value.string()) {
            number = collectText(*text);
            return true;
        }
        number = _objects.size();
        _objects.push_back({&value, {}, {}});
        if (!value.isArray() && !value.isDictionary())
            return true;
        if (depth == maxDepth)
            return refuse(tooDeep());
        std::vector<std::size_t> references;
        if (!(value.isArray() ? collectElements(*value.array(), depth + 1, references)
                              : collectEntries(*value.dictionary(), depth + 1, references)))
            return false;
        _objects[number].references = std::move(references);
        return true;
    }

    std::size_t collectText(std::string_view text) {
        const auto [found, isNew] = _texts.try_emplace(text, _objects.size());
        if (isNew)
            _objects.push_back({nullptr, text, {}});
        return found->second;
    }

    bool collectElements(const platform::Array& array, int depth,
                         std::vector<std::size_t>& references) {
        for (const Value& element : array) {
            if (!collect(element, depth, references.emplace_back()))
                return false;
        }
        return true;
    }

    bool collectEntries(const platform::Dictionary& dictionary, int depth,
                        std::vector<std::size_t>& references) {
        for (const auto& entry : dictionary) {
            references.push_back(collectText(entry.first));
            ++_values;
        }
        for (const auto& entry : dictionary) {
            if (!collect(entry.second, depth, references.emplace_back()))
                return false;
        }
        return true;
    }

    void put(std::uint64_t number, unsigned bytes) {
        for (unsigned shift = bytes * 8; shift > 0; shift -= 8)
            _out.push_back(static_cast<std::uint8_t>(number >> (shift - 8)));
    }

    void putMarker(Marker marker, unsigned low) {
        _out.push_back(static_cast<std::uint8_t>(static_cast<unsigned>(marker) | low));
    }

    void putUnsigned(std::uint64_t number) {
        const unsigned bytes = bytesFor(number);
        putMarker(Marker::Integer, static_cast<unsigned>(std::countr_zero(bytes)));
        put(number, bytes);
    }

    void putCount(Marker marker, std::size_t count) {
        if (count < countFollows)
            return putMarker(marker, static_cast<unsigned>(count));
        putMarker(marker, countFollows);
        putUnsigned(count);
    }

    bool write(const Object& object) {
        if (!object.value)
            return writeText(object.text);
        const Value& value = *object.value;
        switch (value.type()) {
            case Value::Type::Boolean:
                _out.push_back(value.boolValue() ? trueMarker : falseMarker);
                return true;
            case Value::Type::Signed:
            case Value::Type::Unsigned:
                writeInteger(value);
                return true;
            case Value::Type::Double:
                putMarker(Marker::Real, 3);
                put(std::bit_cast<std::uint64_t>(value.doubleValue()), 8);
                return true;
            case Value::Type::Date:
                putMarker(Marker::Date, 3);
                put(std::bit_cast<std::uint64_t>(value.date()->secondsSince1970 - binaryDateEpoch),
                    8);
                return true;
            case Value::Type::Data:
                putCount(Marker::Data, value.data()->size());
                _out.insert(_out.end(), value.data()->begin(), value.data()->end());
                return true;
            case Value::Type::Array:
            case Value::Type::Dictionary:
                writeContainer(object);
                return true;
            default:
                return refuse(notRepresentable("null"));
        }
    }

    void writeInteger(const Value& value) {
        const auto number = value.unsignedValue();
        if (value.type() == Value::Type::Signed && value.int64Value() < 0) {
            putMarker(Marker::Integer, 3);
            put(number, 8);
        } else if (number >> 63) {
            // Eight bytes would be read as negative.
            putMarker(Marker::Integer, 4);
            put(0, 8);
            put(number, 8);
        } else {
            putUnsigned(number);
        }
    }

    bool writeText(std::string_view text) {
        std::u16string units;
        bool isAscii = true;
        for (std::string_view rest = text; !rest.empty();) {
            const auto character = takeCharacter(rest);
            if (!character)
                return refuse(notRepresentable("text is no UTF-8"));
            isAscii = isAscii && *character < 0x80;
            if (*character >= 0x10000) {
                units += static_cast<char16_t>(0xd800 + ((*character - 0x10000) >> 10));
                units += static_cast<char16_t>(0xdc00 + ((*character - 0x10000) & 0x3ff));
            } else {
                units += static_cast<char16_t>(*character);
            }
        }
        if (isAscii) {
            putCount(Marker::Ascii, text.size());
            _out.insert(_out.end(), text.begin(), text.end());
            return true;
        }
        putCount(Marker::Utf16, units.size());
        for (const char16_t unit : units)
            put(unit, 2);
        return true;
    }

    void writeContainer(const Object& object) {
        if (object.value->isArray())
            putCount(Marker::Array, object.references.size());
        else
            putCount(Marker::Dictionary, object.references.size() / 2);
        for (const std::size_t reference : object.references)
            put(reference, _referenceSize);
    }

    void writeTable(const std::vector<std::uint64_t>& offsets) {
        const std::uint64_t table = _out.size();
        const unsigned offsetSize = bytesFor(table);
        for (const std::uint64_t offset : offsets)
            put(offset, offsetSize);
        put(0, 6);
        put(offsetSize, 1);
        put(_referenceSize, 1);
        put(offsets.size(), 8);
        put(0, 8);  // the topmost object stands first
        put(table, 8);
    }

    Error& _reason;
    std::size_t _values = 0;  // as a reader counts them
    std::vector<Object> _objects;
    std::unordered_map<std::string_view, std::size_t> _texts;
    unsigned _referenceSize = 0;
    Data _out;
};

}  // namespace

std::optional<Data> writeBinary(const Value& value, Error& reason) {
    BinaryWriter writer(reason);
    if (!writer.writeDocument(value))
        return std::nullopt;
    return writer.takeBytes();
}

}  // namespace common::property_list
