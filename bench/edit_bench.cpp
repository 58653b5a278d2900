// A rating by the owner, with the library's own smart playlists, beside a row of the same database
// written and committed with its own interface.
#include <fmt/format.h>

#include <random>
#include <vector>

#include "bench/bare_sqlite.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"
#include "device/korvane/owner_edits.h"
#include "platform/media_library.h"

namespace bench {
namespace {

constexpr char OneRating[] = "one rating";
constexpr int Ratings = 100;
constexpr int Rounds = 5;

void rate(benchmark::State& state, std::int64_t tracks) {
    Device& device = Device::filled(tracks);
    KV3Container::populateDynamicContainersInLibrary(KV3Korvane::sharedLibrary(), true);
    device.emptyLog();
    const BareConnection connection = openBare(device.databasePath(), WriterCacheKiB);
    const BareStatement idOf =
        prepareBare(connection.get(), "SELECT item_pid FROM item WHERE item_id = ?");
    const BareStatement write =
        prepareBare(connection.get(), "UPDATE item SET needs_restore = 0 WHERE item_pid = ?");
    std::mt19937_64 random(5);
    const auto anyTracks = [&] {
        std::vector<std::int64_t> pids;
        for (int rating = 0; rating < Ratings; ++rating) {
            sqlite3_bind_int64(idOf.get(), 1,
                               1 + static_cast<std::int64_t>(
                                       random() % static_cast<std::uint64_t>(device.tracks())));
            pids.push_back(readBare(idOf.get()));
        }
        return pids;
    };
    Figure figure{OneRating, "bare UPDATE, commit", tracks, Ratings, 0};
    for (auto _ : state) {
        const std::vector<std::int64_t> pids = anyTracks();
        bool areRated = true;
        addRound(
            figure,
            [&] {
                return costOf([&] {
                    std::uint32_t stars = 0;
                    for (const std::int64_t pid : pids)
                        areRated = !korvane::rateTrack(device.platform().library(), pid,
                                                       ++stars % 5 + 1) &&
                                   areRated;
                });
            },
            [&] {
                return costOf([&] {
                    for (const std::int64_t pid : pids) {
                        sqlite3_bind_int64(write.get(), 1, pid);
                        runBare(write.get());
                    }
                });
            });
        if (!areRated)
            return state.SkipWithError("a track could not be rated");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

}  // namespace

void registerEdits(std::int64_t tracks) {
    benchmark::RegisterBenchmark(fmt::format("{}/{}", OneRating, tracks).c_str(), rate, tracks)
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void registerEditGrowth(std::int64_t small, std::int64_t large) {
    benchmark::RegisterBenchmark(fmt::format("{}, growth", OneRating).c_str(),
                                 [=](benchmark::State& state) {
                                     for (auto _ : state)
                                         reportGrowth(state, OneRating, small, large, 3.0);
                                 })
        ->Iterations(1);
}

}  // namespace bench
