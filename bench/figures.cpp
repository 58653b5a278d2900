#include "bench/figures.h"

#include <fmt/format.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <string_view>

namespace bench {
namespace {

struct Line {
    std::string what;
    std::string against;
    std::int64_t tracks;
    double ourTime;
    double peerTime;
    double ratio;
    double limit;
    double peakMiB;
    double peerPeakMiB;
};

std::vector<Line>& lines() {
    static std::vector<Line> reported;
    return reported;
}

double median(std::vector<double> values) {
    if (values.empty())
        return 0;
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double timeOf(const Cost& cost, Clock clock) {
    return clock == Clock::Processor ? cost.processorSeconds : cost.wallSeconds;
}

double medianTime(const std::vector<Cost>& costs, Clock clock) {
    std::vector<double> times;
    for (const Cost& cost : costs)
        times.push_back(timeOf(cost, clock));
    return median(std::move(times));
}

double highestPeak(const std::vector<Cost>& costs) {
    double peak = 0;
    for (const Cost& cost : costs)
        peak = std::max(peak, cost.peakMiB);
    return peak;
}

// 0 stands for what was not asked.
std::string textOf(double value, int decimals) {
    return value > 0 ? fmt::format("{:.{}f}", value, decimals) : "-";
}

// The kernel's mark of the highest resident memory begins anew.
void resetPeak() {
    ::malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
}

double peakMiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmHWM:"))
            return std::stod(line.substr(std::string_view("VmHWM:").size())) / 1024;
    return 0;
}

void setCounters(benchmark::State& state, const Line& line) {
    state.counters["ratio"] = line.ratio;
    state.counters["limit"] = line.limit;
    state.counters["us_per_item"] = line.ourTime;
    state.counters["peer_us_per_item"] = line.peerTime;
    state.counters["peak_mib"] = line.peakMiB;
    state.counters["peer_peak_mib"] = line.peerPeakMiB;
    lines().push_back(line);
}

const Line* reported(const std::string& what, std::int64_t tracks) {
    const auto found = std::ranges::find_if(
        lines(), [&](const Line& line) { return line.what == what && line.tracks == tracks; });
    return found == lines().end() ? nullptr : &*found;
}

}  // namespace

Cost& Cost::operator+=(const Cost& other) {
    processorSeconds += other.processorSeconds;
    wallSeconds += other.wallSeconds;
    peakMiB = std::max(peakMiB, other.peakMiB);
    return *this;
}

Cost timesOf(const std::function<void()>& work) {
    const auto began = std::chrono::steady_clock::now();
    const std::clock_t processorBegan = std::clock();
    work();
    Cost cost;
    cost.processorSeconds = static_cast<double>(std::clock() - processorBegan) / CLOCKS_PER_SEC;
    cost.wallSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return cost;
}

Cost costOf(const std::function<void()>& work) {
    resetPeak();
    Cost cost = timesOf(work);
    cost.peakMiB = peakMiB();
    return cost;
}

double Figure::ratio() const {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < ours.size(); ++round)
        ratios.push_back(timeOf(ours[round], clock) / timeOf(peers[round], clock));
    return median(std::move(ratios));
}

double Figure::ourTime() const {
    return medianTime(ours, clock) * 1e6 / static_cast<double>(items);
}

double Figure::peerTime() const {
    return medianTime(peers, clock) * 1e6 / static_cast<double>(items);
}

void addRound(Figure& figure, const std::function<Cost()>& ours,
              const std::function<Cost()>& peer) {
    const bool oursIsFirst = figure.ours.size() % 2 == 0;
    if (oursIsFirst)
        figure.ours.push_back(ours());
    figure.peers.push_back(peer());
    if (!oursIsFirst)
        figure.ours.push_back(ours());
}

void report(benchmark::State& state, Figure figure) {
    setCounters(
        state, {figure.what, figure.against, figure.tracks, figure.ourTime(), figure.peerTime(),
                figure.ratio(), figure.limit, highestPeak(figure.ours), highestPeak(figure.peers)});
}

void reportGrowth(benchmark::State& state, const std::string& what, std::int64_t small,
                  std::int64_t large, double limit) {
    const Line* const atSmall = reported(what, small);
    const Line* const atLarge = reported(what, large);
    if (!atSmall || !atLarge)
        return state.SkipWithError("both sizes must have been measured");
    const Line before = *atSmall;
    const Line after = *atLarge;
    const std::string against = fmt::format("itself at {}", small);
    lines().push_back({after.against + ": growth", against, large, after.peerTime, before.peerTime,
                       after.peerTime / before.peerTime, 0, after.peerPeakMiB, before.peerPeakMiB});
    setCounters(state, {what + ": growth", against, large, after.ourTime, before.ourTime,
                        after.ourTime / before.ourTime, limit, after.peakMiB, before.peakMiB});
}

void printTable() {
    fmt::print("\n{:32} {:26} {:>8} {:>9} {:>9} {:>6} {:>6} {:>6} {:>6}\n", "what", "against",
               "tracks", "us/item", "peer us", "ratio", "limit", "MiB", "peer");
    for (const Line& line : lines())
        fmt::print("{:32} {:26} {:8} {:9.2f} {:9.2f} {:6.2f} {:>6} {:>6} {:>6}{}\n", line.what,
                   line.against, line.tracks, line.ourTime, line.peerTime, line.ratio,
                   textOf(line.limit, 2), textOf(line.peakMiB, 0), textOf(line.peerPeakMiB, 0),
                   line.limit > 0 && line.ratio > line.limit ? "  over" : "");
}

}  // namespace bench
