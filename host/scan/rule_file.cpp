#include "host/scan/rule_file.h"

#include <fmt/format.h>

#include <toml++/toml.h>
#include <algorithm>
#include <array>
#include <limits>

#include "host/scan/file_names.h"
#include "host/scan/glob.h"
#include "host/scan/media_kind.h"
#include "host/scan/scanner.h"

namespace host {

namespace {

constexpr std::size_t SizeLimit = 1u << 20;  // bytes
constexpr std::size_t RuleLimit = 10'000;
constexpr std::size_t PatternLimit = 4096;  // bytes

struct TextField {
    std::string_view key;
    std::string Tags::*member;
};
struct NumberField {
    std::string_view key;
    std::int32_t Tags::*member;
};

constexpr auto TextFields = std::to_array<TextField>({
    {"title", &Tags::title},
    {"artist", &Tags::artist},
    {"album", &Tags::album},
    {"album-artist", &Tags::albumArtist},
    {"composer", &Tags::composer},
    {"genre", &Tags::genre},
    {"comment", &Tags::comment},
    {"grouping", &Tags::grouping},
    {"description", &Tags::description},
    {"show", &Tags::show},
    {"episode-id", &Tags::episodeId},
    {"podcast-feed", &Tags::podcastFeed},
});
constexpr auto NumberFields = std::to_array<NumberField>({
    {"year", &Tags::year},
    {"disc", &Tags::discNumber},
    {"disc-count", &Tags::discCount},
    {"track", &Tags::trackNumber},
    {"track-count", &Tags::trackCount},
    {"season", &Tags::season},
    {"episode", &Tags::episode},
    {"bpm", &Tags::beatsPerMinute},
});

// Thrown from the depth of a rule to parse().
struct Fault {
    toml::source_index line;
    std::string text;
};

[[noreturn]] void refuse(const toml::node& node, std::string text) {
    throw Fault{node.source().begin.line, std::move(text)};
}

bool booleanOf(std::string_view key, const toml::node& node) {
    if (!node.is_boolean())
        refuse(node, fmt::format("\"{}\" must be true or false.", key));
    return node.as_boolean()->get();
}

std::string textOf(std::string_view key, const toml::node& node) {
    if (!node.is_string())
        refuse(node, fmt::format("\"{}\" must be text in double quotes.", key));
    return node.as_string()->get();
}

std::int32_t numberOf(std::string_view key, const toml::node& node) {
    const auto* number = node.as_integer();
    if (!number || number->get() < 0 || number->get() > std::numeric_limits<std::int32_t>::max())
        refuse(node, fmt::format("\"{}\" must be a whole number, 0 or more.", key));
    return static_cast<std::int32_t>(number->get());
}

std::string patternOf(const toml::node& node) {
    std::string pattern = textOf("match", node);
    if (pattern.empty() || pattern.size() > PatternLimit)
        refuse(node, "\"match\" must name files, \"Lectures/**\" say.");
    if (pattern.starts_with('/'))
        refuse(node, "\"match\" is relative to this folder: take the \"/\" at its start away.");
    return caseFoldedName(pattern);
}

std::uint32_t mediaTypeOf(const toml::node& node) {
    const std::string name = textOf("kind", node);
    const auto type = mediaTypeNamed(name);
    if (!type)
        refuse(node, fmt::format("\"{}\" is no kind; write one of {}.", displayText(name, 64),
                                 mediaTypeNames()));
    return *type;
}

bool addOverride(std::string_view key, const toml::node& node, MediaRule& rule) {
    for (const TextField& field : TextFields)
        if (field.key == key) {
            rule.overrides.push_back({field.member, nullptr, displayText(textOf(key, node)), 0});
            return true;
        }
    for (const NumberField& field : NumberFields)
        if (field.key == key) {
            rule.overrides.push_back({nullptr, field.member, {}, numberOf(key, node)});
            return true;
        }
    return false;
}

MediaRule ruleOf(const toml::table& table) {
    MediaRule rule;
    for (const auto& [tomlKey, node] : table) {
        const std::string_view key = tomlKey.str();
        if (key == "match")
            rule.pattern = patternOf(node);
        else if (key == "ignore")
            rule.ignore = booleanOf(key, node);
        else if (key == "kind")
            rule.mediaType = mediaTypeOf(node);
        else if (key == "rental")
            rule.isRental = booleanOf(key, node);
        else if (!addOverride(key, node, rule))
            throw Fault{tomlKey.source().begin.line,
                        fmt::format("\"{}\" is nothing that a rule can say; see "
                                    "docs/formats.md or take the line away.",
                                    displayText(key, 64))};
    }
    if (rule.pattern.empty())
        refuse(table, "the rule has no \"match\"; add one, match = \"Lectures/**\" say.");
    return rule;
}

std::vector<MediaRule> rulesOf(const toml::table& root) {
    std::vector<MediaRule> rules;
    for (const auto& [key, node] : root) {
        const toml::array* array = node.as_array();
        if (key.str() != "rule" || !array)
            throw Fault{key.source().begin.line,
                        "only rules may stand here: begin each with a line [[rule]]."};
        if (array->size() > RuleLimit)
            refuse(node, fmt::format("there are more than {} rules.", RuleLimit));
        for (const toml::node& element : *array) {
            if (!element.is_table())
                refuse(element, "begin each rule with a line [[rule]].");
            rules.push_back(ruleOf(*element.as_table()));
        }
    }
    return rules;
}

platform::Error ruleError(toml::source_index line, std::string_view text) {
    return platform::Error(ScanErrorDomain, ScanErrorRuleFile,
                           fmt::format("{}, line {}: {}", RuleFileName, line, text));
}

}  // namespace

platform::OptionalError RuleFile::parse(std::string_view text, RuleFile& rules) {
    if (text.size() > SizeLimit)
        return platform::Error(ScanErrorDomain, ScanErrorRuleFile,
                               fmt::format("{} is larger than 1 MiB.", RuleFileName));
    try {
        rules._rules = rulesOf(toml::parse(text));
        return std::nullopt;
    } catch (const Fault& fault) {
        return ruleError(fault.line, fault.text);
    } catch (const toml::parse_error& error) {
        return ruleError(
            error.source().begin.line,
            fmt::format("this cannot be read ({}).", displayText(error.description(), 200)));
    }
}

RuleVerdict RuleFile::verdictFor(std::string_view path) const {
    RuleVerdict verdict;
    if (_rules.empty())
        return verdict;
    const std::string folded = caseFoldedName(path);
    for (const MediaRule& rule : _rules) {
        const bool wholePath = rule.pattern.find('/') != std::string::npos;
        if (!matchesGlob(rule.pattern, wholePath ? folded : fileNameOfPath(folded)))
            continue;
        if (rule.ignore)
            verdict.ignore = *rule.ignore;
        if (rule.mediaType)
            verdict.mediaType = rule.mediaType;
        if (rule.isRental)
            verdict.isRental = rule.isRental;
        for (const TagOverride& override : rule.overrides)
            verdict.overrides.push_back(&override);
    }
    return verdict;
}

}  // namespace host
