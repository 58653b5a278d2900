// The binary format: "bplist00", objects, a table of their offsets, and a trailer of 32 bytes: 6 of
// no use here, the size of an offset, the size of an object reference, then as 8 bytes each the
// number of objects, the number of the topmost one and the place of the table. All numbers have
// their most significant byte first.
//
// An object begins with a byte of type (high half) and size (low half; 15: the size follows as an
// integer object). Every offset and count is checked against what is there before it is used.
#include <bit>
#include <cstring>
#include <string_view>

#include "common/property_list/binary_format.h"
#include "common/property_list/formats.h"
#include "common/property_list/limits.h"
#include "common/utf8.h"

namespace common::property_list {
namespace {

using platform::Error;
using platform::Value;
using Bytes = std::span<const std::uint8_t>;

// At most 8 bytes.
std::uint64_t bigEndian(Bytes bytes) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

class BinaryReader {
public:
    BinaryReader(Bytes bytes, Error& reason) : _bytes(bytes), _reason(reason) {}

    std::optional<Value> read() {
        if (!readTrailer())
            return std::nullopt;
        Value value;
        if (!readObject(_topObject, 0, value))
            return std::nullopt;
        return value;
    }

private:
    // What is left of an object's bytes; taking more than there is refuses the document.
    struct Cursor {
        Bytes rest;
        bool take(std::uint64_t count, Bytes& taken) {
            if (count > rest.size())
                return false;
            taken = rest.first(static_cast<std::size_t>(count));
            rest = rest.subspan(static_cast<std::size_t>(count));
            return true;
        }
    };

    bool refuse(Error reason) {
        _reason = std::move(reason);
        return false;
    }
    bool refuse(std::string_view reason) { return refuse(malformed(reason)); }
    bool refuseTruncated() { return refuse("an object goes beyond the objects' end"); }

    bool readTrailer() {
        if (_bytes.size() < binaryMagic.size() + trailerSize)
            return refuse("too short");
        const Bytes trailer = _bytes.last(trailerSize);
        _offsetSize = trailer[6];
        _referenceSize = trailer[7];
        _objectCount = bigEndian(trailer.subspan(8, 8));
        _topObject = bigEndian(trailer.subspan(16, 8));
        const std::uint64_t table = bigEndian(trailer.subspan(24, 8));
        const std::uint64_t tableEnd = _bytes.size() - trailerSize;
        if (_offsetSize < 1 || _offsetSize > 8 || _referenceSize < 1 || _referenceSize > 8)
            return refuse("impossible integer size");
        if (table < binaryMagic.size() || table > tableEnd)
            return refuse("offset table outside the file");
        if (_objectCount > (tableEnd - table) / _offsetSize)
            return refuse("offset table beyond the file's end");
        if (_topObject >= _objectCount)
            return refuse("no topmost object");
        _objects = _bytes.first(static_cast<std::size_t>(table));
        _offsets = _bytes.subspan(static_cast<std::size_t>(table));
        return true;
    }

    bool find(std::uint64_t object, Cursor& cursor) {
        if (object >= _objectCount)
            return refuse("reference to no object");
        const std::uint64_t offset = bigEndian(
            _offsets.subspan(static_cast<std::size_t>(object * _offsetSize), _offsetSize));
        if (offset < binaryMagic.size() || offset >= _objects.size())
            return refuse("offset outside the objects");
        cursor.rest = _objects.subspan(static_cast<std::size_t>(offset));
        return true;
    }

    bool readObject(std::uint64_t object, int depth, Value& value) {
        Cursor cursor;
        Bytes marker;
        if (++_values > maxValues)
            return refuse(tooManyValues());
        if (!find(object, cursor))
            return false;
        cursor.take(1, marker);
        const std::uint8_t size = marker[0] & 15;
        switch (static_cast<Marker>(marker[0] & 0xf0)) {
            case Marker::Simple:
                return readBoolean(marker[0], value);
            case Marker::Integer:
                return readInteger(cursor, size, value);
            case Marker::Real:
                return readReal(cursor, size, value);
            case Marker::Date:
                return readDate(cursor, size, value);
            case Marker::Data:
                return readData(cursor, size, value);
            case Marker::Array:
            case Marker::OrderedSet:
            case Marker::Set:
                return readArray(cursor, size, depth, value);
            case Marker::Dictionary:
                return readDictionary(cursor, size, depth, value);
            default: {
                std::string text;
                if (!readText(cursor, marker[0], text))
                    return false;
                value = Value(std::move(text));
                return true;
            }
        }
    }

    bool readBoolean(std::uint8_t marker, Value& value) {
        if (marker != falseMarker && marker != trueMarker)
            return refuse("unknown object");
        value = Value(marker == trueMarker);
        return true;
    }

    bool readInteger(Cursor& cursor, std::uint8_t power, Value& value) {
        Bytes bytes;
        if (power > 4)
            return refuse("impossible integer");
        if (!cursor.take(std::uint64_t{1} << power, bytes))
            return refuseTruncated();
        const bool isWide = power == 4;
        const std::uint64_t high = isWide ? bigEndian(bytes.first(8)) : 0;
        const std::uint64_t low = bigEndian(isWide ? bytes.last(8) : bytes);
        const bool lowIsNegative = low >> 63;
        if (high == 0 && isWide && lowIsNegative)
            value = Value(low);
        else if (high == 0 || (high == UINT64_MAX && lowIsNegative))
            value = Value(static_cast<std::int64_t>(low));
        else
            return refuse("integer out of range");
        return true;
    }

    bool readReal(Cursor& cursor, std::uint8_t power, Value& value) {
        Bytes bytes;
        if (power != 2 && power != 3)
            return refuse("impossible real");
        if (!cursor.take(std::uint64_t{1} << power, bytes))
            return refuseTruncated();
        value = power == 2 ? Value(static_cast<double>(std::bit_cast<float>(
                                 static_cast<std::uint32_t>(bigEndian(bytes)))))
                           : Value(std::bit_cast<double>(bigEndian(bytes)));
        return true;
    }

    bool readDate(Cursor& cursor, std::uint8_t power, Value& value) {
        Bytes bytes;
        if (power != 3)
            return refuse("impossible date");
        if (!cursor.take(8, bytes))
            return refuseTruncated();
        value = Value(platform::Date{std::bit_cast<double>(bigEndian(bytes)) + binaryDateEpoch});
        return true;
    }

    // The count of an object: the low half of its marker, or the integer object that follows.
    bool readCount(Cursor& cursor, std::uint8_t size, std::uint64_t& count) {
        count = size;
        if (size != countFollows)
            return true;
        Bytes marker, bytes;
        if (!cursor.take(1, marker))
            return refuseTruncated();
        const unsigned power = marker[0] & 15;
        if (static_cast<Marker>(marker[0] & 0xf0) != Marker::Integer || power > 3)
            return refuse("impossible count");
        if (!cursor.take(std::uint64_t{1} << power, bytes))
            return refuseTruncated();
        count = bigEndian(bytes);
        return true;
    }

    // `count` units of `unit` bytes each, charged to what the document may produce.
    bool takePayload(Cursor& cursor, std::uint8_t size, std::size_t unit, Bytes& payload) {
        std::uint64_t count = 0;
        if (!readCount(cursor, size, count))
            return false;
        if (count > cursor.rest.size() / unit)
            return refuseTruncated();
        cursor.take(count * unit, payload);
        _producedBytes += payload.size();
        return _producedBytes <= maxBytes || refuse(tooLarge());
    }

    bool readData(Cursor& cursor, std::uint8_t size, Value& value) {
        Bytes payload;
        if (!takePayload(cursor, size, 1, payload))
            return false;
        value = Value(platform::Data(payload.begin(), payload.end()));
        return true;
    }

    bool readText(Cursor& cursor, std::uint8_t marker, std::string& text) {
        const auto kind = static_cast<Marker>(marker & 0xf0);
        if (kind != Marker::Ascii && kind != Marker::Utf16 && kind != Marker::Utf8)
            return refuse("unknown object");
        Bytes payload;
        if (!takePayload(cursor, marker & 15, kind == Marker::Utf16 ? 2 : 1, payload))
            return false;
        if (kind == Marker::Utf16)
            return readUtf16(payload, text);
        text.assign(payload.begin(), payload.end());
        if (kind == Marker::Ascii) {
            for (const std::uint8_t byte : payload) {
                if (byte >= 0x80)
                    return refuse("text is no ASCII");
            }
            return true;
        }
        return isUtf8(text) || refuse("text is no UTF-8");
    }

    bool readUtf16(Bytes payload, std::string& text) {
        text.reserve(payload.size() / 2);
        for (std::size_t i = 0; i < payload.size(); i += 2) {
            char32_t unit = static_cast<char32_t>(bigEndian(payload.subspan(i, 2)));
            if (unit >= 0xdc00 && unit < 0xe000)
                return refuse("text is no UTF-16");
            if (unit >= 0xd800 && unit < 0xdc00) {
                i += 2;
                if (i == payload.size())
                    return refuse("text is no UTF-16");
                const auto second = static_cast<char32_t>(bigEndian(payload.subspan(i, 2)));
                if (second < 0xdc00 || second >= 0xe000)
                    return refuse("text is no UTF-16");
                unit = 0x10000 + ((unit - 0xd800) << 10) + (second - 0xdc00);
            }
            appendUtf8(text, unit);
        }
        return true;
    }

    // `perElement` references for each element of a container that stands at `depth`.
    bool takeReferences(Cursor& cursor, std::uint8_t size, int depth, std::size_t perElement,
                        Bytes& references) {
        std::uint64_t count = 0;
        if (depth == maxDepth)
            return refuse(tooDeep());
        if (!readCount(cursor, size, count))
            return false;
        if (count > cursor.rest.size() / (_referenceSize * perElement))
            return refuseTruncated();
        if (count * perElement > maxValues - _values)
            return refuse(tooManyValues());
        return cursor.take(count * perElement * _referenceSize, references);
    }

    std::uint64_t reference(Bytes references, std::size_t index) const {
        return bigEndian(references.subspan(index * _referenceSize, _referenceSize));
    }

    bool readArray(Cursor& cursor, std::uint8_t size, int depth, Value& value) {
        Bytes references;
        if (!takeReferences(cursor, size, depth, 1, references))
            return false;
        platform::Array array(references.size() / _referenceSize);
        for (std::size_t i = 0; i < array.size(); ++i) {
            if (!readObject(reference(references, i), depth + 1, array[i]))
                return false;
        }
        value = Value(std::move(array));
        return true;
    }

    bool readDictionary(Cursor& cursor, std::uint8_t size, int depth, Value& value) {
        Bytes references;
        if (!takeReferences(cursor, size, depth, 2, references))
            return false;
        const std::size_t count = references.size() / _referenceSize / 2;
        platform::Dictionary dictionary;
        for (std::size_t i = 0; i < count; ++i) {
            std::string key;
            Value element;
            if (!readKey(reference(references, i), key) ||
                !readObject(reference(references, count + i), depth + 1, element))
                return false;
            dictionary.insert_or_assign(std::move(key), std::move(element));
        }
        value = Value(std::move(dictionary));
        return true;
    }

    bool readKey(std::uint64_t object, std::string& key) {
        Cursor cursor;
        Bytes marker;
        if (++_values > maxValues)
            return refuse(tooManyValues());
        if (!find(object, cursor))
            return false;
        cursor.take(1, marker);
        return readText(cursor, marker[0], key);
    }

    const Bytes _bytes;
    Error& _reason;
    std::uint8_t _offsetSize = 0;
    std::uint8_t _referenceSize = 0;
    std::uint64_t _objectCount = 0;
    std::uint64_t _topObject = 0;
    Bytes _objects;  // from the file's beginning, so that offsets index it
    Bytes _offsets;
    std::size_t _values = 0;
    std::size_t _producedBytes = 0;
};

}  // namespace

bool isBinary(Bytes bytes) {
    return bytes.size() >= binaryMagic.size() &&
           std::memcmp(bytes.data(), binaryMagic.data(), binaryMagic.size()) == 0;
}

std::optional<Value> readBinary(Bytes bytes, Error& reason) {
    return BinaryReader(bytes, reason).read();
}

}  // namespace common::property_list
