// The device's library beside its peers: libraries of 10,000, 100,000 and 1,000,000 tracks, made by
// the real import. ORLITH_BENCH_ROWS in the environment is the largest size that is measured.
#include "bench/library_bench.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

#include "bench/bench_device.h"
#include "bench/figures.h"

namespace {

constexpr std::int64_t Sizes[] = {10'000, 100'000, 1'000'000};

std::int64_t largestSize() {
    const char* const given = std::getenv("ORLITH_BENCH_ROWS");
    return given ? std::atoll(given) : 1'000'000;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const std::int64_t largest = largestSize();
    for (const std::int64_t tracks : Sizes)
        if (tracks <= largest) {
            bench::registerImports(tracks);
            bench::registerOutstandingLists(tracks);
            bench::registerGathering(tracks);
            bench::registerMetrics(tracks);
            bench::registerFiling(tracks);
            bench::registerExports(tracks);
            bench::registerImportsOfChanges(tracks);
            bench::registerEdits(tracks);
        }
    if (Sizes[1] <= largest)
        bench::registerRestoreMarking(Sizes[1]);
    if (Sizes[2] <= largest) {
        bench::registerImportGrowth(Sizes[1], Sizes[2]);
        bench::registerOutstandingGrowth(Sizes[1], Sizes[2]);
        bench::registerExportGrowth(Sizes[0], Sizes[2]);
        bench::registerEditGrowth(Sizes[0], Sizes[2]);
    }
    benchmark::RunSpecifiedBenchmarks();
    bench::printTable();
    bench::Device::release();
    benchmark::Shutdown();
    return 0;
}
