#include "common/property_list/scalar_text.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

#include <fmt/format.h>

namespace common::property_list {
namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view whiteSpace = " \t\r\n";
constexpr std::uint8_t notInAlphabet = 64;

constexpr std::array<std::uint8_t, 256> makeDecodingTable() {
    std::array<std::uint8_t, 256> table{};
    table.fill(notInAlphabet);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::uint8_t>(i);
    return table;
}
constexpr std::array<std::uint8_t, 256> decodingTable = makeDecodingTable();

// Takes `digits` decimal digits and, unless it is 0, the character after them off the text.
bool takeField(std::string_view& text, std::size_t digits, char separator, int& field) {
    if (text.size() < digits + (separator ? 1 : 0))
        return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + digits, field);
    if (error != std::errc() || end != text.data() + digits || text.front() == '-')
        return false;
    text.remove_prefix(digits);
    if (separator) {
        if (text.front() != separator)
            return false;
        text.remove_prefix(1);
    }
    return true;
}

// The part after the seconds: "Z", or a fraction and "Z".
std::optional<double> fractionFromText(std::string_view text) {
    if (text == "Z")
        return 0.0;
    if (text.size() < 3 || text.front() != '.' || text.back() != 'Z')
        return std::nullopt;
    text.remove_suffix(1);
    if (text.substr(1).find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    return realFromText(text);
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(whiteSpace);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(whiteSpace) - first + 1);
}

std::optional<platform::Data> dataFromBase64(std::string_view text) {
    platform::Data data;
    data.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int characters = 0, padding = 0;
    for (const char c : text) {
        if (whiteSpace.find(c) != std::string_view::npos)
            continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        const std::uint8_t sextet = decodingTable[static_cast<std::uint8_t>(c)];
        if (sextet == notInAlphabet || padding > 0)
            return std::nullopt;
        group = group << 6 | sextet;
        if (++characters % 4 == 0) {
            data.push_back(static_cast<std::uint8_t>(group >> 16));
            data.push_back(static_cast<std::uint8_t>(group >> 8));
            data.push_back(static_cast<std::uint8_t>(group));
        }
    }
    const int left = characters % 4;
    if (left == 1 || padding != (left == 0 ? 0 : 4 - left))
        return std::nullopt;
    if (left == 2)
        data.push_back(static_cast<std::uint8_t>(group >> 4));
    if (left == 3) {
        data.push_back(static_cast<std::uint8_t>(group >> 10));
        data.push_back(static_cast<std::uint8_t>(group >> 2));
    }
    return data;
}

void appendBase64(std::string& out, const platform::Data& data) {
    out.reserve(out.size() + data.size() / 3 * 4 + 4);
    for (std::size_t i = 0; i < data.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, data.size() - i);
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (j < count ? data[i + j] : 0u);
        for (std::size_t j = 0; j < 4; ++j)
            out += j <= count ? alphabet[group >> (18 - 6 * j) & 63] : '=';
    }
}

std::optional<platform::Date> dateFromText(std::string_view text) {
    using namespace std::chrono;
    int y = 0, m = 0, d = 0, hour = 0, minute = 0, second = 0;
    if (!takeField(text, 4, '-', y) || !takeField(text, 2, '-', m) || !takeField(text, 2, 'T', d) ||
        !takeField(text, 2, ':', hour) || !takeField(text, 2, ':', minute) ||
        !takeField(text, 2, 0, second))
        return std::nullopt;
    const std::optional<double> fraction = fractionFromText(text);
    const year_month_day day{year(y), month(static_cast<unsigned>(m)),
                             std::chrono::day(static_cast<unsigned>(d))};
    if (!fraction || !day.ok() || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    const auto days = sys_days(day).time_since_epoch().count();
    return platform::Date{static_cast<double>(days) * 86400 + hour * 3600 + minute * 60 + second +
                          *fraction};
}

std::optional<std::string> textOfDate(platform::Date date) {
    using namespace std::chrono;
    constexpr double firstSecond = -62167219200;  // 0000-01-01T00:00:00Z
    constexpr double endSecond = 253402300800;    // 10000-01-01T00:00:00Z
    const double whole = std::floor(date.secondsSince1970);
    if (!(whole >= firstSecond && whole < endSecond))
        return std::nullopt;
    const sys_seconds moment{seconds(static_cast<std::int64_t>(whole))};
    const sys_days day = floor<days>(moment);
    const year_month_day date_(day);
    const hh_mm_ss time(moment - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date_.year()),
                       static_cast<unsigned>(date_.month()), static_cast<unsigned>(date_.day()),
                       time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::optional<platform::Value> integerFromText(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    constexpr std::uint64_t half = std::uint64_t{1} << 63;
    if (negative) {
        if (magnitude > half)
            return std::nullopt;
        return platform::Value(static_cast<std::int64_t>(0 - magnitude));
    }
    if (magnitude < half)
        return platform::Value(static_cast<std::int64_t>(magnitude));
    return platform::Value(magnitude);
}

std::optional<double> realFromText(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-'))
            return std::nullopt;
    }
    double real = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), real);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return real;
}

std::string textOfReal(double real) {
    return fmt::format("{}", real);
}

}  // namespace common::property_list
