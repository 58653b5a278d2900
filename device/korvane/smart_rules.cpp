#include "device/korvane/smart_rules.h"

#include <algorithm>
#include <string_view>

#include "common/little_endian.h"

namespace korvane {

namespace {

constexpr std::string_view Magic = "KVSR";
constexpr std::uint8_t Version = 1;
constexpr std::uint8_t FlagMatchesAny = 1;
constexpr std::uint8_t FlagDescending = 2;

bool isTextField(SmartField field) {
    return static_cast<std::uint8_t>(field) >= FirstTextField;
}

bool isKnown(SmartField field) {
    const auto number = static_cast<std::uint8_t>(field);
    return (number >= static_cast<std::uint8_t>(SmartField::MediaType) &&
            number <= static_cast<std::uint8_t>(SmartField::SeasonNumber)) ||
           (number >= static_cast<std::uint8_t>(SmartField::Title) &&
            number <= static_cast<std::uint8_t>(SmartField::Show));
}

bool isDate(SmartField field) {
    return field == SmartField::LastPlayed || field == SmartField::LastSkipped ||
           field == SmartField::DateAdded;
}

bool fits(SmartField field, SmartOperation operation) {
    switch (operation) {
        case SmartOperation::Equal:
        case SmartOperation::NotEqual:
            return true;
        case SmartOperation::Greater:
        case SmartOperation::GreaterOrEqual:
        case SmartOperation::Less:
        case SmartOperation::LessOrEqual:
        case SmartOperation::AnyBits:
        case SmartOperation::NoBits:
            return !isTextField(field);
        case SmartOperation::Contains:
        case SmartOperation::DoesNotContain:
        case SmartOperation::BeginsWith:
        case SmartOperation::EndsWith:
            return isTextField(field);
        case SmartOperation::WithinLast:
        case SmartOperation::NotWithinLast:
            return isDate(field);
    }
    return false;
}

bool hasMeaning(const SmartCondition& condition) {
    if (!isKnown(condition.field) || !fits(condition.field, condition.operation))
        return false;
    const auto* text = std::get_if<std::string>(&condition.value);
    return isTextField(condition.field) ? text && text->size() <= MaximumSmartTextBytes : !text;
}

bool hasMeaning(const SmartRules& rules) {
    return isKnown(rules.order) && rules.conditions.size() <= MaximumSmartConditions &&
           std::ranges::all_of(rules.conditions, [](const SmartCondition& condition) {
               return hasMeaning(condition);
           });
}

SmartCondition readCondition(common::LittleEndianReader& reader) {
    SmartCondition condition;
    condition.field = static_cast<SmartField>(reader.number(1));
    condition.operation = static_cast<SmartOperation>(reader.number(1));
    if (isTextField(condition.field))
        condition.value = reader.text(reader.number(2));
    else
        condition.value = static_cast<std::int64_t>(reader.number(8));
    return condition;
}

}  // namespace

std::optional<platform::Data> encodeSmartRules(const SmartRules& rules) {
    if (!hasMeaning(rules))
        return std::nullopt;
    platform::Data out(Magic.begin(), Magic.end());
    out.push_back(Version);
    out.push_back(static_cast<std::uint8_t>((rules.matchesAny ? FlagMatchesAny : 0) |
                                            (rules.isDescending ? FlagDescending : 0)));
    out.push_back(static_cast<std::uint8_t>(rules.order));
    common::appendLittleEndian(out, rules.limit, 4);
    common::appendLittleEndian(out, rules.conditions.size(), 2);
    for (const SmartCondition& condition : rules.conditions) {
        out.push_back(static_cast<std::uint8_t>(condition.field));
        out.push_back(static_cast<std::uint8_t>(condition.operation));
        if (const auto* text = std::get_if<std::string>(&condition.value)) {
            common::appendShortText(out, *text);
        } else {
            common::appendLittleEndian(
                out, static_cast<std::uint64_t>(std::get<std::int64_t>(condition.value)), 8);
        }
    }
    return out;
}

std::optional<SmartRules> decodeSmartRules(std::span<const std::uint8_t> bytes) {
    common::LittleEndianReader reader(bytes);
    if (reader.text(Magic.size()) != Magic || reader.number(1) != Version)
        return std::nullopt;
    SmartRules rules;
    const auto flags = reader.number(1);
    if (flags > (FlagMatchesAny | FlagDescending))
        return std::nullopt;
    rules.matchesAny = (flags & FlagMatchesAny) != 0;
    rules.isDescending = (flags & FlagDescending) != 0;
    rules.order = static_cast<SmartField>(reader.number(1));
    rules.limit = static_cast<std::uint32_t>(reader.number(4));
    const auto count = reader.number(2);
    if (count > MaximumSmartConditions)
        return std::nullopt;
    for (std::uint64_t i = 0; i < count && reader.isWhole(); ++i)
        rules.conditions.push_back(readCondition(reader));
    if (!reader.isAtEnd() || !hasMeaning(rules))
        return std::nullopt;
    return rules;
}

}  // namespace korvane
