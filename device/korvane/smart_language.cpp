#include "device/korvane/smart_language.h"

#include <fmt/format.h>

#include <algorithm>

#include "device/korvane/owner_edit.h"
#include "device/korvane/smart_values.h"

namespace korvane {

namespace {

using enum SmartOperation;

// What is wrong, and where: bytes from the beginning.
struct Mistake {
    std::size_t place;
    std::string text;
};

struct Token {
    enum class Kind { Word, Quoted, Sign, End };
    Kind kind = Kind::End;
    std::size_t begin = 0;  // in the text
    std::size_t end = 0;
    std::string text;  // without quotes; signs and words in lower case
};

constexpr std::string_view Spaces = " \t\n";
constexpr std::string_view Signs = "<>=!";

class Reader {
public:
    explicit Reader(std::string_view text) : _text(text) { advance(); }

    const Token& token() const { return _token; }
    std::string_view text() const { return _text; }
    bool atEnd() const { return _token.kind == Token::Kind::End; }
    bool isWord(std::string_view word) const {
        return _token.kind == Token::Kind::Word && _token.text == word;
    }
    bool take(std::string_view word) {
        const bool isThere = isWord(word);
        if (isThere)
            advance();
        return isThere;
    }

    void advance() {
        const std::size_t begin =
            std::min(_text.find_first_not_of(Spaces, _token.end), _text.size());
        _token = {Token::Kind::End, begin, begin, ""};
        if (begin == _text.size())
            return;
        if (_text[begin] == '"' || _text[begin] == '\'')
            readQuoted();
        else if (Signs.find(_text[begin]) != std::string_view::npos)
            readRun(Token::Kind::Sign, _text.find_first_not_of(Signs, begin));
        else
            readRun(Token::Kind::Word, _text.find_first_of(" \t\n<>=!", begin));
    }

private:
    void readRun(Token::Kind kind, std::size_t end) {
        _token.kind = kind;
        _token.end = std::min(end, _text.size());
        _token.text = plainSmartWord(_text.substr(_token.begin, _token.end - _token.begin));
    }

    void readQuoted() {
        const char quote = _text[_token.begin];
        _token.kind = Token::Kind::Quoted;
        for (std::size_t at = _token.begin + 1; at < _text.size(); ++at) {
            if (_text[at] == quote) {
                _token.end = at + 1;
                return;
            }
            if (_text[at] == '\\' && at + 1 < _text.size())
                ++at;
            _token.text += _text[at];
        }
        throw Mistake{_token.begin, "this quote has no end"};
    }

    std::string_view _text;
    Token _token;
};

std::string fieldNames() {
    std::string names;
    for (const SmartFieldTerm& term : SmartFieldTerms)
        names += (names.empty() ? "" : ", ") + std::string(term.name);
    return names;
}

const SmartFieldTerm& readField(Reader& reader) {
    const Token token = reader.token();
    const std::string_view word = reader.text().substr(token.begin, token.end - token.begin);
    const SmartFieldTerm* field = token.kind == Token::Kind::Word ? smartFieldNamed(word) : nullptr;
    if (reader.atEnd())
        throw Mistake{token.begin, "a field is missing here"};
    if (!field)
        throw Mistake{token.begin,
                      fmt::format("there is no field \"{}\"; there are {}", word, fieldNames())};
    reader.advance();
    return *field;
}

std::optional<SmartOperation> signMeaning(std::string_view sign) {
    if (sign == "=" || sign == "==")
        return Equal;
    if (sign == "!=" || sign == "<>")
        return NotEqual;
    if (sign == ">")
        return Greater;
    if (sign == ">=")
        return GreaterOrEqual;
    if (sign == "<")
        return Less;
    if (sign == "<=")
        return LessOrEqual;
    return std::nullopt;
}

constexpr char NoOperation[] =
    "after a field comes is, is not, =, !=, >, >=, <, <=, contains, does not contain, begins with, "
    "ends with, in the last or not in the last";

SmartOperation ending(Reader& reader, std::string_view word, SmartOperation operation) {
    if (!reader.take(word))
        throw Mistake{reader.token().begin, fmt::format("\"{}\" is missing here", word)};
    return operation;
}

SmartOperation recently(Reader& reader, SmartOperation operation) {
    reader.take("the");
    return ending(reader, "last", operation);
}

SmartOperation readOperation(Reader& reader) {
    const Token token = reader.token();
    if (token.kind == Token::Kind::Sign) {
        const auto meaning = signMeaning(token.text);
        if (!meaning)
            throw Mistake{token.begin, NoOperation};
        reader.advance();
        return *meaning;
    }
    const bool hasIs = reader.take("is");
    if (reader.take("not"))
        return reader.take("in") ? recently(reader, NotWithinLast)
               : hasIs           ? NotEqual
                                 : ending(reader, "in", NotWithinLast);
    if (reader.take("in"))
        return recently(reader, WithinLast);
    if (hasIs)
        return Equal;
    if (reader.take("contains"))
        return Contains;
    if (reader.take("begins") || reader.take("starts"))
        return ending(reader, "with", BeginsWith);
    if (reader.take("ends"))
        return ending(reader, "with", EndsWith);
    if (reader.take("does")) {
        ending(reader, "not", DoesNotContain);
        return ending(reader, "contain", DoesNotContain);
    }
    throw Mistake{token.begin, NoOperation};
}

// A quoted text, or all words up to the next "and" or "or", as they stand.
std::string readValue(Reader& reader) {
    const Token first = reader.token();
    if (first.kind == Token::Kind::Quoted) {
        reader.advance();
        return first.text;
    }
    std::size_t end = first.begin;
    while (reader.token().kind == Token::Kind::Word && !reader.isWord("and") &&
           !reader.isWord("or")) {
        end = reader.token().end;
        reader.advance();
    }
    if (end == first.begin)
        throw Mistake{first.begin, "a value is missing here"};
    if (!reader.atEnd() && reader.token().kind != Token::Kind::Word)
        throw Mistake{reader.token().begin,
                      "a text with quotes or one of < > = ! in it stands in quotes"};
    return std::string(reader.text().substr(first.begin, end - first.begin));
}

bool isAgo(SmartOperation operation) {
    return operation == WithinLast || operation == NotWithinLast;
}

// Whether people may ask this of such a field; what stored rules may hold is wider.
bool mayAsk(SmartKind kind, SmartOperation operation) {
    switch (kind) {
        case SmartKind::Text:
            return operation == Equal || operation == NotEqual ||
                   (operation >= Contains && operation <= EndsWith);
        case SmartKind::Flag:
        case SmartKind::MediaKind:
            return operation == Equal || operation == NotEqual;
        case SmartKind::Date:
            return operation <= LessOrEqual || isAgo(operation);
        default:
            return operation <= LessOrEqual;
    }
}

const char* questionsOf(SmartKind kind) {
    switch (kind) {
        case SmartKind::Text:
            return "is, is not, contains, does not contain, begins with and ends with";
        case SmartKind::Flag:
        case SmartKind::MediaKind:
            return "is and is not";
        case SmartKind::Date:
            return "in the last, not in the last, is never, >, >=, < and <=";
        default:
            return "is, is not, >, >=, < and <=";
    }
}

SmartOperation storedOperation(SmartKind kind, SmartOperation operation) {
    if (kind != SmartKind::MediaKind)
        return operation;
    return operation == Equal ? AnyBits : NoBits;
}

SmartCondition readCondition(Reader& reader) {
    const SmartFieldTerm& field = readField(reader);
    const std::size_t operationPlace = reader.token().begin;
    const SmartOperation operation = readOperation(reader);
    if (!mayAsk(field.kind, operation))
        throw Mistake{operationPlace,
                      fmt::format("{} can be asked with {}", field.name, questionsOf(field.kind))};
    const std::size_t valuePlace = reader.token().begin;
    const std::string value = readValue(reader);
    if (field.kind == SmartKind::Text) {
        if (!isPlainText(value, MaximumSmartTextBytes))
            throw Mistake{valuePlace, fmt::format("a text has at most {} bytes and no control "
                                                  "characters",
                                                  MaximumSmartTextBytes)};
        return {field.field, operation, value};
    }
    if (isAgo(operation)) {
        const auto seconds = smartSecondsOfText(value);
        if (!seconds)
            throw Mistake{valuePlace, "here comes a time, like 2 weeks, 30 days or 12 hours"};
        return {field.field, operation, *seconds};
    }
    const auto number = smartNumberOfText(field.kind, value);
    const bool isExactDate = field.kind == SmartKind::Date && number.value_or(0) != 0 &&
                             (operation == Equal || operation == NotEqual);
    if (!number || isExactDate)
        throw Mistake{valuePlace, isExactDate ? fmt::format("{} can be asked with {}", field.name,
                                                            questionsOf(field.kind))
                                              : fmt::format("{} is {}", field.name,
                                                            expectedSmartValue(field.kind))};
    return {field.field, storedOperation(field.kind, operation), *number};
}

SmartRules readRules(std::string_view text) {
    SmartRules rules;
    Reader reader(text);
    if (reader.atEnd())
        throw Mistake{0, "say what the tracks have in common, or all"};
    if (reader.isWord("all")) {
        reader.advance();
        if (!reader.atEnd())
            throw Mistake{reader.token().begin, "all stands alone"};
        return rules;
    }
    rules.conditions.push_back(readCondition(reader));
    while (!reader.atEnd()) {
        const Token joint = reader.token();
        const bool isOr = reader.take("or");
        if (!isOr && !reader.take("and"))
            throw Mistake{joint.begin, "and or or is missing here"};
        if (rules.conditions.size() > 1 && isOr != rules.matchesAny)
            throw Mistake{joint.begin,
                          "conditions are joined by and, or by or, not by both; a "
                          "text with such a word in it stands in quotes"};
        if (rules.conditions.size() == MaximumSmartConditions)
            throw Mistake{joint.begin,
                          fmt::format("at most {} conditions", MaximumSmartConditions)};
        rules.matchesAny = isOr;
        rules.conditions.push_back(readCondition(reader));
    }
    return rules;
}

void readLimit(std::string_view text, SmartRules& rules) {
    Reader reader(text);
    if (reader.atEnd())
        return;
    const auto count = smartNumberOfText(SmartKind::Number, reader.token().text);
    if (!count || *count == 0 || *count > LargestSmartLimit)
        throw Mistake{reader.token().begin,
                      fmt::format("a limit is 1 to {} tracks", LargestSmartLimit)};
    rules.limit = static_cast<std::uint32_t>(*count);
    reader.advance();
    rules.order = SmartField::DateAdded;
    rules.isDescending = true;
    if (reader.atEnd())
        return;
    ending(reader, "by", Equal);
    const bool isLowest = reader.take("lowest");
    const bool isHighest = !isLowest && reader.take("highest");
    const SmartFieldTerm& field = readField(reader);
    if (!reader.atEnd())
        throw Mistake{reader.token().begin, "a limit ends with the field"};
    rules.order = field.field;
    rules.isDescending = isHighest || (!isLowest && field.kind != SmartKind::Text);
}

// The text in one line, and an arrow below the place.
std::string pointingAt(std::string_view text, const Mistake& mistake) {
    std::string line(text);
    for (char& letter : line)
        if (letter == '\n' || letter == '\t')
            letter = ' ';
    std::string arrow;
    for (std::size_t at = 0; at < mistake.place; ++at)
        if ((static_cast<unsigned char>(text[at]) & 0xc0) != 0x80)
            arrow += ' ';
    return fmt::format("{}\n  {}\n  {}^", mistake.text, line, arrow);
}

}  // namespace

std::optional<SmartRules> smartRulesOfText(std::string_view text, std::string_view limit,
                                           platform::OptionalError& error) {
    for (const std::string_view given : {text, limit})
        if (!isPlainText(std::string(given.substr(0, LongestRules + 1)), LongestRules)) {
            error = refusedEdit(
                fmt::format("rules have at most {} bytes and no control characters", LongestRules));
            return std::nullopt;
        }
    std::string_view current = text;
    try {
        SmartRules rules = readRules(text);
        current = limit;
        readLimit(limit, rules);
        return rules;
    } catch (const Mistake& mistake) {
        error = refusedEdit(pointingAt(current, mistake));
        return std::nullopt;
    }
}

}  // namespace korvane
