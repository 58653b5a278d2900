// The rules of smart playlists said in words again.
#include <fmt/format.h>

#include "device/korvane/smart_language.h"
#include "device/korvane/smart_values.h"

namespace korvane {

namespace {

using enum SmartOperation;

const char* operationWords(SmartOperation operation) {
    switch (operation) {
        case Equal:
        case AnyBits:
            return "is";
        case NotEqual:
        case NoBits:
            return "is not";
        case Greater:
            return ">";
        case GreaterOrEqual:
            return ">=";
        case Less:
            return "<";
        case LessOrEqual:
            return "<=";
        case Contains:
            return "contains";
        case DoesNotContain:
            return "does not contain";
        case BeginsWith:
            return "begins with";
        case EndsWith:
            return "ends with";
        case WithinLast:
            return "in the last";
        case NotWithinLast:
            return "not in the last";
    }
    return "";
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            out += '\\';
        out += letter;
    }
    return out + '"';
}

std::string textOfCondition(const SmartCondition& condition) {
    const SmartFieldTerm& field = smartFieldTerm(condition.field);
    const auto* text = std::get_if<std::string>(&condition.value);
    std::string value;
    if (text)
        value = quoted(*text);
    else if (condition.operation == WithinLast || condition.operation == NotWithinLast)
        value = textOfSmartSeconds(std::get<std::int64_t>(condition.value));
    else
        value = textOfSmartNumber(field.kind, std::get<std::int64_t>(condition.value));
    return fmt::format("{} {} {}", field.name, operationWords(condition.operation), value);
}

}  // namespace

std::string textOfSmartRules(const SmartRules& rules) {
    if (rules.conditions.empty())
        return "all";
    std::string text;
    for (const SmartCondition& condition : rules.conditions)
        text += (text.empty()       ? ""
                 : rules.matchesAny ? " or "
                                    : " and ") +
                textOfCondition(condition);
    return text;
}

std::string textOfSmartLimit(const SmartRules& rules) {
    if (rules.limit == 0)
        return "";
    const SmartFieldTerm& field = smartFieldTerm(rules.order);
    const bool isUsual = rules.isDescending == (field.kind != SmartKind::Text);
    return fmt::format("{} by {}{}", rules.limit,
                       isUsual              ? ""
                       : rules.isDescending ? "highest "
                                            : "lowest ",
                       field.name);
}

}  // namespace korvane
