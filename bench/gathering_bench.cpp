// The assets that a device wants from another one, as the plug-in lists them for the daemon,
// beside its two queries stepped through with the database's own interface.
#include <fmt/format.h>

#include "bench/bare_sqlite.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"

namespace bench {
namespace {

constexpr char NothingWanted[] = "assets, nothing wanted";
constexpr char FilesWanted[] = "assets, every file wanted";
constexpr int Rounds = 15;

constexpr char Tracks[] =
    "SELECT i.item_pid, s.podcast_guid, s.account_id, s.store_item_id, s.flavor, s.matched_status, "
    "s.redownloaded_status, s.veska_id, s.sync_id, i.needs_restore, i.is_rental, e.title FROM item "
    "i JOIN item_extra e ON e.item_id = i.item_id JOIN item_store s ON s.item_id = i.item_id WHERE "
    "(s.sync_id <> 0 OR i.needs_restore = 1) AND (i.base_location_id = 0 OR i.base_location_id = "
    "400)";
constexpr char Pictures[] =
    "SELECT DISTINCT(cloud_artwork_token), sync_id, media_type, title FROM item_artwork "
    "LEFT OUTER JOIN artwork ON cloud_artwork_token=artwork_token JOIN item_store USING (item_pid) "
    "JOIN item USING (item_pid) JOIN item_extra USING (item_pid) WHERE artwork_token IS NULL AND "
    "cloud_artwork_token != '' AND cloud_artwork_token=best_artwork_token "
    "GROUP BY cloud_artwork_token";

std::size_t listed(Device& device) {
    std::size_t count = 0;
    device.client().assetsToSyncWithCompletion(
        [&](const platform::OptionalError&, const std::vector<std::shared_ptr<ORAsset>>& assets) {
            count = assets.size();
        });
    return count;
}

void gather(benchmark::State& state, std::int64_t tracks, Figure figure, bool filesArePresent) {
    Device& device = Device::filled(tracks);
    device.setFilesPresent(filesArePresent);
    const BareConnection connection = openBare(device.databasePath(), ReaderCacheKiB);
    const BareStatement rows = prepareBare(connection.get(), Tracks);
    const BareStatement pictures = prepareBare(connection.get(), Pictures);
    std::size_t assets = 0;
    for (auto _ : state) {
        addRound(
            figure, [&] { return costOf([&] { assets = listed(device); }); },
            [&] {
                return costOf([&] {
                    benchmark::DoNotOptimize(readBare(pictures.get()) + readBare(rows.get()));
                });
            });
        if ((assets == 0) != filesArePresent)
            return state.SkipWithError("not the assets that there should be");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

}  // namespace

void registerGathering(std::int64_t tracks) {
    for (const bool arePresent : {true, false}) {
        const Figure figure{arePresent ? NothingWanted : FilesWanted, "bare SELECTs", tracks,
                            tracks, 1.3};
        benchmark::RegisterBenchmark(fmt::format("{}/{}", figure.what, tracks).c_str(), gather,
                                     tracks, figure, arePresent)
            ->Iterations(Rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace bench
