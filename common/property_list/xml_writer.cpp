#include <string>

#include <fmt/format.h>

#include "common/property_list/formats.h"
#include "common/property_list/limits.h"
#include "common/property_list/scalar_text.h"
#include "common/utf8.h"

namespace common::property_list {
namespace {

using platform::Error;
using platform::Value;

constexpr std::string_view beginning =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
constexpr std::string_view ending = "</plist>\n";

bool isXmlCharacter(char32_t c) {
    return c >= 0x20 ? c != 0xfffe && c != 0xffff : c == '\t' || c == '\n' || c == '\r';
}

class XmlWriter {
public:
    explicit XmlWriter(Error& reason) : _reason(reason) {}

    bool writeDocument(const Value& value) {
        _out = beginning;
        if (!write(value, 0))
            return false;
        _out += ending;
        return true;
    }

    std::string_view text() const { return _out; }

private:
    bool refuse(Error reason) {
        _reason = std::move(reason);
        return false;
    }

    void indent(int depth) { _out.append(static_cast<std::size_t>(depth), '\t'); }

    void writeElement(std::string_view name, std::string_view text) {
        _out += fmt::format("<{}>{}</{}>\n", name, text, name);
    }

    bool writeText(std::string_view name, std::string_view text) {
        _out += fmt::format("<{}>", name);
        while (!text.empty()) {
            const std::string_view before = text;
            const auto character = takeCharacter(text);
            if (!character)
                return refuse(notRepresentable("text is no UTF-8"));
            if (!isXmlCharacter(*character))
                return refuse(notRepresentable("control character"));
            switch (*character) {
                case '&':
                    _out += "&amp;";
                    break;
                case '<':
                    _out += "&lt;";
                    break;
                case '>':
                    _out += "&gt;";
                    break;
                case '\r':  // bare, a reader takes it for a line end
                    _out += "&#13;";
                    break;
                default:
                    _out += before.substr(0, before.size() - text.size());
            }
        }
        _out += fmt::format("</{}>\n", name);
        return true;
    }

    bool write(const Value& value, int depth) {
        if (++_values > maxValues)
            return refuse(tooManyValues());
        if (_out.size() > maxBytes)
            return refuse(tooLarge());
        switch (value.type()) {
            case Value::Type::Null:
                return refuse(notRepresentable("null"));
            case Value::Type::Boolean:
                _out += value.boolValue() ? "<true/>\n" : "<false/>\n";
                return true;
            case Value::Type::Signed:
                writeElement("integer", fmt::format("{}", value.int64Value()));
                return true;
            case Value::Type::Unsigned:
                writeElement("integer", fmt::format("{}", value.unsignedValue()));
                return true;
            case Value::Type::Double:
                writeElement("real", textOfReal(value.doubleValue()));
                return true;
            case Value::Type::String:
                return writeText("string", *value.string());
            case Value::Type::Data:
                _out += "<data>";
                appendBase64(_out, *value.data());
                _out += "</data>\n";
                return true;
            case Value::Type::Date:
                return writeDate(*value.date());
            default:
                return writeContainer(value, depth);
        }
    }

    bool writeDate(platform::Date date) {
        const std::optional<std::string> text = textOfDate(date);
        if (!text)
            return refuse(notRepresentable("date outside the years 0 to 9999"));
        writeElement("date", *text);
        return true;
    }

    bool writeContainer(const Value& value, int depth) {
        if (depth == maxDepth)
            return refuse(tooDeep());
        const std::string_view name = value.isArray() ? "array" : "dict";
        _out += fmt::format("<{}>\n", name);
        if (!(value.isArray() ? writeElements(*value.array(), depth + 1)
                              : writeEntries(*value.dictionary(), depth + 1)))
            return false;
        indent(depth);
        _out += fmt::format("</{}>\n", name);
        return true;
    }

    bool writeElements(const platform::Array& array, int depth) {
        for (const Value& element : array) {
            indent(depth);
            if (!write(element, depth))
                return false;
        }
        return true;
    }

    bool writeEntries(const platform::Dictionary& dictionary, int depth) {
        for (const auto& [key, element] : dictionary) {
            indent(depth);
            // Readers count a key like a value.
            ++_values;
            if (!writeText("key", key))
                return false;
            indent(depth);
            if (!write(element, depth))
                return false;
        }
        return true;
    }

    Error& _reason;
    std::string _out;
    std::size_t _values = 0;
};

}  // namespace

std::optional<platform::Data> writeXml(const Value& value, Error& reason) {
    XmlWriter writer(reason);
    if (!writer.writeDocument(value))
        return std::nullopt;
    if (writer.text().size() > maxBytes) {
        reason = tooLarge();
        return std::nullopt;
    }
    return platform::Data(writer.text().begin(), writer.text().end());
}

}  // namespace common::property_list
