// The XML format, read element by element: no document tree is built, and nothing is kept of a
// document that goes beyond the limits.
#include <expat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/property_list/formats.h"
#include "common/property_list/limits.h"
#include "common/property_list/scalar_text.h"

namespace common::property_list {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Error;
using platform::Value;

constexpr std::size_t maxPiece = 1u << 20;

class XmlReader {
public:
    XmlReader() : _parser(XML_ParserCreate(nullptr)) {
        XML_SetUserData(_parser.get(), this);
        XML_SetElementHandler(
            _parser.get(),
            [](void* self, const char* name, const char**) { of(self).elementBegins(name); },
            [](void* self, const char*) { of(self).elementEnds(); });
        XML_SetCharacterDataHandler(_parser.get(), [](void* self, const char* text, int length) {
            of(self).characters({text, static_cast<std::size_t>(length)});
        });
        // A list needs no entities of its own; refused, they can neither multiply nor hide text.
        XML_SetEntityDeclHandler(
            _parser.get(),
            [](void* self, const char*, int, const char*, int, const char*, const char*,
               const char*, const char*) { of(self).refuse(malformed("entity declaration")); });
        XML_SetSkippedEntityHandler(_parser.get(), [](void* self, const char*, int) {
            of(self).refuse(malformed("unknown entity"));
        });
    }

    std::optional<Value> read(std::span<const std::uint8_t> bytes, Error& reason) {
        const XML_Status status = parse(bytes);
        if (_refused) {
            reason = std::move(_reason);
            return std::nullopt;
        }
        if (status != XML_STATUS_OK) {
            reason = malformed(XML_ErrorString(XML_GetErrorCode(_parser.get())));
            return std::nullopt;
        }
        if (!_root)
            reason = malformed("no value");
        return std::move(_root);
    }

private:
    enum class Element { None, Array, Dictionary, Key, String, Integer, Real, Date, Data, Boolean };

    struct Container {
        bool isDictionary = false;
        bool hasKey = false;  // a key is waiting for its value
        std::string key;
        Array array;
        Dictionary dictionary;
    };

    struct ParserDeleter {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    // Piece by piece, because the parser copies what it is given: of a document that is refused at
    // its beginning only that is copied.
    XML_Status parse(std::span<const std::uint8_t> bytes) {
        for (;;) {
            const std::span<const std::uint8_t> piece =
                bytes.first(std::min(bytes.size(), maxPiece));
            bytes = bytes.subspan(piece.size());
            const XML_Status status =
                XML_Parse(_parser.get(), reinterpret_cast<const char*>(piece.data()),
                          static_cast<int>(piece.size()), bytes.empty());
            if (status != XML_STATUS_OK || bytes.empty())
                return status;
        }
    }

    static XmlReader& of(void* self) { return *static_cast<XmlReader*>(self); }

    static Element elementNamed(std::string_view name) {
        static constexpr std::pair<std::string_view, Element> elements[] = {
            {"string", Element::String},   {"key", Element::Key},     {"integer", Element::Integer},
            {"dict", Element::Dictionary}, {"array", Element::Array}, {"data", Element::Data},
            {"date", Element::Date},       {"real", Element::Real},   {"true", Element::Boolean},
            {"false", Element::Boolean},
        };
        for (const auto& [text, element] : elements) {
            if (text == name)
                return element;
        }
        return Element::None;
    }

    void refuse(Error reason) {
        if (!_refused) {
            _refused = true;
            _reason = std::move(reason);
            XML_StopParser(_parser.get(), XML_FALSE);
        }
    }

    void elementBegins(std::string_view name) {
        if (_refused)
            return;
        if (!_insideList) {
            _insideList = name == "plist";
            if (!_insideList)
                refuse(malformed("no property list"));
            return;
        }
        const Element element = elementNamed(name);
        if (element == Element::None || _leaf != Element::None)
            return refuse(malformed("unexpected element"));
        if (!mayBegin(element))
            return refuse(malformed("key and value do not alternate"));
        if (++_values > maxValues)
            return refuse(tooManyValues());
        if (element == Element::Array || element == Element::Dictionary) {
            if (_open.size() == maxDepth)
                return refuse(tooDeep());
            _open.emplace_back().isDictionary = element == Element::Dictionary;
            return;
        }
        _leaf = element;
        _text.clear();
        if (element == Element::Boolean)
            _boolean = name == "true";
    }

    bool mayBegin(Element element) const {
        const bool isKey = element == Element::Key;
        if (_open.empty())
            return !isKey && !_root;
        const Container& container = _open.back();
        return container.isDictionary ? container.hasKey != isKey : !isKey;
    }

    void characters(std::string_view text) {
        if (_refused)
            return;
        if (_leaf != Element::None && _leaf != Element::Boolean)
            _text += text;
        else if (!trimmed(text).empty())
            refuse(malformed("text between elements"));
    }

    void elementEnds() {
        if (_refused)
            return;
        if (_leaf != Element::None)
            return leafEnds(std::exchange(_leaf, Element::None));
        if (_open.empty())
            return;  // the list itself
        Container container = std::move(_open.back());
        _open.pop_back();
        if (container.hasKey)
            return refuse(malformed("key without value"));
        if (container.isDictionary)
            add(Value(std::move(container.dictionary)));
        else
            add(Value(std::move(container.array)));
    }

    void leafEnds(Element leaf) {
        switch (leaf) {
            case Element::Key:
                _open.back().key = _text;
                _open.back().hasKey = true;
                return;
            case Element::String:
                return add(Value(_text));
            case Element::Boolean:
                return add(Value(_boolean));
            case Element::Integer:
                return addParsed(integerFromText(trimmed(_text)), "integer");
            case Element::Real:
                return addParsed(realFromText(trimmed(_text)), "real");
            case Element::Date:
                return addParsed(dateFromText(trimmed(_text)), "date");
            default:
                return addParsed(dataFromBase64(_text), "data");
        }
    }

    template <typename T>
    void addParsed(std::optional<T> parsed, std::string_view kind) {
        if (parsed)
            add(Value(std::move(*parsed)));
        else
            refuse(malformed(std::string("unreadable ") + std::string(kind)));
    }

    void add(Value value) {
        if (_open.empty()) {
            _root = std::move(value);
            return;
        }
        Container& container = _open.back();
        if (container.isDictionary) {
            container.dictionary.insert_or_assign(std::move(container.key), std::move(value));
            container.hasKey = false;
        } else {
            container.array.push_back(std::move(value));
        }
    }

    const std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter> _parser;
    bool _insideList = false;
    Element _leaf = Element::None;  // the open element without elements inside
    bool _boolean = false;
    std::string _text;             // of the open leaf
    std::vector<Container> _open;  // outermost first
    std::size_t _values = 0;
    std::optional<Value> _root;
    bool _refused = false;
    Error _reason;
};

}  // namespace

std::optional<Value> readXml(std::span<const std::uint8_t> bytes, Error& reason) {
    return XmlReader().read(bytes, reason);
}

}  // namespace common::property_list
