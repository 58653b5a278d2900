#include "device/korvane/smart_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>

namespace korvane {

namespace {

constexpr std::int64_t LargestNumber = 1'000'000'000'000;
constexpr std::int64_t PointsPerStar = 20;
constexpr std::int64_t MostStars = 5;
constexpr std::int64_t BitsPerKiloBit = 1'000;
constexpr std::int64_t MillisecondsPerSecond = 1'000;
constexpr std::int64_t SecondsPerDay = 86'400;
constexpr std::int64_t LatestDate = 253'402'300'799;  // the last second of the year 9999
constexpr std::int64_t EarliestYear = 1'970;

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, number);
    const bool isWhole = failure == std::errc() && rest == end;
    return isWhole && number >= 0 && number <= LargestNumber ? std::optional(number) : std::nullopt;
}

std::optional<std::int64_t> times(std::optional<std::int64_t> number, std::int64_t unit) {
    if (!number || *number > std::numeric_limits<std::int64_t>::max() / unit)
        return std::nullopt;
    return *number * unit;
}

// "12 weeks" and "12weeks": the number and what follows it, in lower case.
struct Measure {
    std::optional<std::int64_t> number;
    std::string unit;
};

Measure measureOf(std::string_view text) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    std::string_view unit = text.substr(digits);
    while (unit.starts_with(' '))
        unit.remove_prefix(1);
    return {wholeNumber(text.substr(0, digits)), plainSmartWord(unit)};
}

template <std::size_t N>
std::optional<std::int64_t> inUnits(const Measure& measure, const SmartNumberTerm (&units)[N]) {
    const auto* unit = std::ranges::find(units, measure.unit, &SmartNumberTerm::name);
    return unit == std::end(units) ? std::nullopt : times(measure.number, unit->number);
}

// 210, 3:30 or 1:02:03, in seconds.
std::optional<std::int64_t> clockTime(std::string_view text) {
    std::int64_t seconds = 0;
    for (int parts = 0; parts < 3; ++parts) {
        const std::size_t colon = text.find(':');
        const auto part = wholeNumber(text.substr(0, colon));
        if (!part || (parts > 0 && *part > 59))
            return std::nullopt;
        seconds = seconds * 60 + *part;
        if (colon == std::string_view::npos)
            return seconds;
        text.remove_prefix(colon + 1);
    }
    return std::nullopt;
}

std::optional<std::int64_t> dateOf(std::string_view text) {
    if (plainSmartWord(text) == "never")
        return 0;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-')
        return std::nullopt;
    const auto year = wholeNumber(text.substr(0, 4));
    const auto month = wholeNumber(text.substr(5, 2));
    const auto day = wholeNumber(text.substr(8, 2));
    if (!year || !month || !day || *year < EarliestYear)
        return std::nullopt;
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(*year)),
                                           std::chrono::month(static_cast<unsigned>(*month)),
                                           std::chrono::day(static_cast<unsigned>(*day)));
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch().count() * SecondsPerDay;
}

std::string textOfDate(std::int64_t seconds) {
    if (seconds == 0)
        return "never";
    if (seconds < 0 || seconds > LatestDate)
        return fmt::format("{} seconds since 1970", seconds);
    const std::chrono::year_month_day date(
        std::chrono::sys_days(std::chrono::days(seconds / SecondsPerDay)));
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::optional<std::int64_t> flagOf(std::string_view text) {
    const std::string word = plainSmartWord(text);
    if (word == "yes" || word == "true" || word == "1")
        return 1;
    if (word == "no" || word == "false" || word == "0")
        return 0;
    return std::nullopt;
}

std::optional<std::int64_t> mediaKindOf(std::string_view text) {
    const std::string word = plainSmartWord(text);
    const auto* kind = std::ranges::find_if(SmartMediaKinds, [&](const SmartMediaKind& known) {
        return plainSmartWord(known.name) == word;
    });
    return kind == std::end(SmartMediaKinds) ? std::nullopt : std::optional(kind->bits);
}

std::string textOfMediaKinds(std::int64_t bits) {
    std::string text;
    for (const SmartMediaKind& kind : SmartMediaKinds)
        if ((bits & kind.bits) != 0)
            text += (text.empty() ? "" : ", ") + std::string(kind.name);
    return text.empty() ? std::to_string(bits) : text;
}

std::string textOfLength(std::int64_t milliseconds) {
    const std::int64_t seconds = milliseconds / MillisecondsPerSecond;
    if (seconds < 3600)
        return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

// As much of the largest unit as it is a multiple of.
template <std::size_t N>
std::string wholeUnits(std::int64_t number, const SmartNumberTerm (&units)[N],
                       std::string (*name)(std::string_view unit, std::int64_t count)) {
    for (const SmartNumberTerm& unit : units)
        if (number >= unit.number && number % unit.number == 0)
            return fmt::format("{} {}", number / unit.number,
                               name(unit.name, number / unit.number));
    return fmt::format("{} {}", number, name(units[N - 1].name, number));
}

std::string timeUnit(std::string_view unit, std::int64_t count) {
    return std::string(unit) + (count == 1 ? "" : "s");
}

std::string sizeUnit(std::string_view unit, std::int64_t) {
    std::string text(unit);
    std::ranges::replace(text, 'b', 'B');
    text.front() = static_cast<char>(text.front() >= 'a' ? text.front() - 'a' + 'A' : text.front());
    return text;
}

}  // namespace

std::optional<std::int64_t> smartNumberOfText(SmartKind kind, std::string_view text) {
    switch (kind) {
        case SmartKind::Stars: {
            const auto stars = wholeNumber(text);
            return stars && *stars <= MostStars ? times(stars, PointsPerStar) : std::nullopt;
        }
        case SmartKind::Number:
            return wholeNumber(text);
        case SmartKind::Length:
            return times(clockTime(text), MillisecondsPerSecond);
        case SmartKind::Size: {
            Measure measure = measureOf(text);
            if (measure.unit.empty())
                measure.unit = "b";
            return inUnits(measure, SmartSizeUnits);
        }
        case SmartKind::KiloBits:
            return times(wholeNumber(text), BitsPerKiloBit);
        case SmartKind::Date:
            return dateOf(text);
        case SmartKind::Flag:
            return flagOf(text);
        case SmartKind::MediaKind:
            return mediaKindOf(text);
        case SmartKind::Text:
            break;
    }
    return std::nullopt;
}

std::string textOfSmartNumber(SmartKind kind, std::int64_t number) {
    switch (kind) {
        case SmartKind::Stars:
            return fmt::format("{}", static_cast<double>(number) / PointsPerStar);
        case SmartKind::Length:
            return textOfLength(number);
        case SmartKind::Size:
            return wholeUnits(number, SmartSizeUnits, sizeUnit);
        case SmartKind::KiloBits:
            return fmt::format("{}", number / BitsPerKiloBit);
        case SmartKind::Date:
            return textOfDate(number);
        case SmartKind::Flag:
            return number != 0 ? "yes" : "no";
        case SmartKind::MediaKind:
            return textOfMediaKinds(number);
        case SmartKind::Number:
        case SmartKind::Text:
            break;
    }
    return std::to_string(number);
}

std::optional<std::int64_t> smartSecondsOfText(std::string_view text) {
    Measure measure = measureOf(text);
    if (measure.unit.ends_with('s'))
        measure.unit.pop_back();
    const auto seconds = inUnits(measure, SmartTimeUnits);
    return seconds && *seconds <= LargestNumber ? seconds : std::nullopt;
}

std::string textOfSmartSeconds(std::int64_t seconds) {
    return wholeUnits(seconds, SmartTimeUnits, timeUnit);
}

const char* expectedSmartValue(SmartKind kind) {
    switch (kind) {
        case SmartKind::Text:
            return "a text";
        case SmartKind::Stars:
            return "0 to 5 stars";
        case SmartKind::Number:
            return "a whole number";
        case SmartKind::Length:
            return "a length, like 3:30 or 210 (seconds)";
        case SmartKind::Size:
            return "a size, like 8 MB or 4 GiB";
        case SmartKind::KiloBits:
            return "a whole number of kilobits a second";
        case SmartKind::Date:
            return "a date, like 2024-05-31, or never";
        case SmartKind::Flag:
            return "yes or no";
        case SmartKind::MediaKind:
            return "Music, MusicVideo, Movie, TVEpisode, Podcast, VideoPodcast, Audiobook, "
                   "TesselU, "
                   "TesselUVideo or HomeVideo";
    }
    return "";
}

}  // namespace korvane
