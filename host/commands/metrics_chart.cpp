#include "host/commands/metrics_chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "host/progress/progress.h"
#include "host/scan/file_names.h"
#include "link/reports.pb.h"

namespace host {

namespace link = ::orlith::link;

namespace {

constexpr std::uint64_t BarWidth = 30;
constexpr std::size_t LongestName = 14;
constexpr char Kept = '#';
constexpr char Purgeable = '-';

// Of a bar as long as BarWidth for `whole`; something is never nothing.
std::uint64_t widthOf(std::uint64_t part, std::uint64_t whole) {
    if (part == 0 || whole == 0)
        return 0;
    const double share = static_cast<double>(part) / static_cast<double>(whole);
    const auto width = static_cast<std::uint64_t>(share * BarWidth + 0.5);
    return std::clamp<std::uint64_t>(width, 1, BarWidth);
}

std::string barOf(const link::TypeMetrics& type, std::uint64_t largest) {
    const std::uint64_t width = widthOf(type.physical_size(), largest);
    // What may go is never hidden, nor is what stays.
    std::uint64_t purgeable = std::min(widthOf(type.purgeable_size(), largest), width);
    if (purgeable == width && width > 1 && type.purgeable_size() < type.physical_size())
        --purgeable;
    return std::string(width - purgeable, Kept) + std::string(purgeable, Purgeable);
}

// "Music           ##########################--------    6.2 GiB  1204 tracks"
std::string lineOf(const std::string& name, const std::string& bar, std::uint64_t bytes,
                   std::optional<std::uint64_t> tracks, int countWidth) {
    std::string line = fmt::format("{:<{}}  {:<{}}  {:>10}", displayText(name, LongestName),
                                   LongestName, bar, BarWidth, formatBytes(bytes));
    if (tracks)
        line += fmt::format("  {:>{}} {}", *tracks, countWidth, *tracks == 1 ? "track" : "tracks");
    return line;
}

}  // namespace

std::vector<std::string> metricsChart(const link::MetricsReply& metrics) {
    if (metrics.types().empty())
        return {"no media on the device"};
    std::vector<link::TypeMetrics> types(metrics.types().begin(), metrics.types().end());
    std::ranges::stable_sort(types, std::greater<>(), &link::TypeMetrics::physical_size);
    std::uint64_t all = 0, purgeable = 0, tracks = 0;
    for (const link::TypeMetrics& type : types) {
        all += type.physical_size();
        purgeable += type.purgeable_size();
        tracks += type.count();
    }
    const auto countWidth = static_cast<int>(std::to_string(tracks).size());
    std::vector<std::string> lines;
    for (const link::TypeMetrics& type : types)
        lines.push_back(lineOf(
            type.asset_type(), barOf(type, types.front().physical_size()), type.physical_size(),
            type.has_count() ? std::optional(type.count()) : std::nullopt, countWidth));
    lines.push_back(lineOf("all", "", all, tracks, countWidth));
    if (purgeable > 0)
        lines.push_back(fmt::format("{}: temporary downloads, {}, which may be removed at any time",
                                    Purgeable, formatBytes(purgeable)));
    return lines;
}

}  // namespace host
