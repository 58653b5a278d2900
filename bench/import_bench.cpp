// Importing a host's data into an empty library beside prepared inserts of the same rows, and
// importing the same once more beside that.
#include <fmt/format.h>

#include <filesystem>

#include "bench/bare_inserts.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"

namespace bench {
namespace {

constexpr char NewTracks[] = "import, new tracks";
constexpr char SameAgain[] = "import, the same again";
constexpr int Rounds = 3;
// A larger library is held to its growth, reported beside.
constexpr std::int64_t LimitAt = 100'000;

Cost importCost(Device& device) {
    return costOf([&] { device.import(); });
}

Cost insertCost(Device& device) {
    const std::string copy = device / "bare";
    const Cost cost = copyWithInserts(device.databasePath(), copy);
    for (const char* part : {"", "-wal", "-shm"})
        std::filesystem::remove(copy + part);
    return cost;
}

void importNew(benchmark::State& state, std::int64_t tracks) {
    Figure figure{NewTracks, "prepared inserts", tracks, tracks, tracks == LimitAt ? 1.5 : 0};
    for (auto _ : state) {
        addRound(
            figure, [&] { return importCost(Device::fresh(tracks)); },
            [&] { return insertCost(Device::filled(tracks)); });
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

void importAgain(benchmark::State& state, std::int64_t tracks) {
    Figure figure{SameAgain, "its first import", tracks, tracks, 0.35};
    for (auto _ : state) {
        Device& device = Device::fresh(tracks);
        figure.peers.push_back(importCost(device));
        device.emptyLog();
        const std::int64_t revision = device.revision();
        figure.ours.push_back(importCost(device));
        if (device.logSize() != 0 || device.revision() != revision)
            return state.SkipWithError("importing the same again has written");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

}  // namespace

void registerImports(std::int64_t tracks) {
    const auto add = [tracks](const char* name, auto* function) {
        benchmark::RegisterBenchmark(fmt::format("{}/{}", name, tracks).c_str(), function, tracks)
            ->Iterations(Rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    add(NewTracks, importNew);
    add(SameAgain, importAgain);
}

void registerImportGrowth(std::int64_t small, std::int64_t large) {
    benchmark::RegisterBenchmark(fmt::format("{}, growth", NewTracks).c_str(),
                                 [=](benchmark::State& state) {
                                     for (auto _ : state)
                                         reportGrowth(state, NewTracks, small, large, 2.2);
                                 })
        ->Iterations(1);
}

}  // namespace bench
