// The list of outstanding transfers, as the plug-in makes it for the daemon, beside the same
// columns, joins and order stepped through with the database's own interface.
#include <fmt/format.h>

#include "bench/bare_sqlite.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"

namespace bench {
namespace {

constexpr char NothingLacking[] = "transfers, nothing lacking";
constexpr char FilesLacking[] = "transfers, every file lacking";
constexpr int Rounds = 5;

constexpr char Statement[] =
    "SELECT i.item_pid, w.sync_artwork_token, i.base_location_id, e.download_identifier, "
    "i.media_type, e.kenning_id, km.checksum, e.pending_kenning_checksum, s.podcast_guid, "
    "s.account_id, s.store_item_id, s.flavor, s.matched_status, s.redownloaded_status, s.veska_id, "
    "s.sync_id, i.needs_restore, i.is_rental, e.title FROM item i JOIN item_extra e ON e.item_id = "
    "i.item_id JOIN item_store s ON s.item_id = i.item_id JOIN item_artwork w ON w.item_id = "
    "i.item_id LEFT JOIN kenning_metadata km ON km.kenning_id = e.kenning_id WHERE "
    "(ifnull(s.veska_id, 0) = 0 AND s.sync_id <> 0) OR i.needs_restore = 1 ORDER BY "
    "i.album_artist_order, i.album_order, i.disc_number, i.track_number";

void listTransfers(benchmark::State& state, std::int64_t tracks, Figure figure,
                   bool filesArePresent) {
    Device& device = Device::filled(tracks);
    device.setFilesPresent(filesArePresent);
    const std::size_t expected = filesArePresent ? 0 : static_cast<std::size_t>(tracks);
    const BareConnection connection = openBare(device.databasePath(), ReaderCacheKiB);
    const BareStatement rows = prepareBare(connection.get(), Statement);
    std::size_t listed = expected;
    for (auto _ : state) {
        addRound(
            figure,
            [&] {
                return costOf([&] {
                    listed = device.client()
                                 .outstandingAssetTransfersWithDownloadManager(
                                     device.platform().downloadManager().get())
                                 .size();
                });
            },
            [&] { return costOf([&] { benchmark::DoNotOptimize(readBare(rows.get())); }); });
        if (listed != expected)
            return state.SkipWithError("not the transfers that there should be");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

}  // namespace

void registerOutstandingLists(std::int64_t tracks) {
    for (const bool arePresent : {true, false}) {
        const Figure figure{arePresent ? NothingLacking : FilesLacking, "bare SELECT, ORDER BY",
                            tracks, tracks, arePresent ? 1.3 : 2.0};
        benchmark::RegisterBenchmark(fmt::format("{}/{}", figure.what, tracks).c_str(),
                                     listTransfers, tracks, figure, arePresent)
            ->Iterations(Rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

void registerOutstandingGrowth(std::int64_t small, std::int64_t large) {
    benchmark::RegisterBenchmark(fmt::format("{}, growth", NothingLacking).c_str(),
                                 [=](benchmark::State& state) {
                                     for (auto _ : state)
                                         reportGrowth(state, NothingLacking, small, large, 1.3);
                                 })
        ->Iterations(1);
}

}  // namespace bench
