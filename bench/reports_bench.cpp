// What the plug-in is asked outside of a sync: the metrics of all tracks beside the bare rows and a
// bare walk of the two directories that count among them; the marking of a restored library's
// tracks beside the bare updates, with the library's own triggers on both sides.
#include <fmt/format.h>
#include <fts.h>
#include <sys/stat.h>

#include <vector>

#include "bench/bare_sqlite.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"

namespace bench {
namespace {

constexpr int Rounds = 5;

constexpr char MeasuredTracks[] =
    "SELECT i.item_pid, i.media_type, e.total_size, s.is_temporary_cloud_download FROM item i NOT "
    "INDEXED CROSS JOIN item_extra e ON e.item_id = i.item_id CROSS JOIN item_store s ON s.item_id "
    "= i.item_id WHERE i.base_location_id <> 0";
constexpr const char* MeasuredDirectories[] = {"/var/mobile/Media/Tessel_Control/Artwork",
                                               "/var/mobile/Media/Tessel_Control/Tessel"};

std::int64_t walkBare(std::string directory) {
    char* const paths[] = {directory.data(), nullptr};
    FTS* const walk = ::fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR, nullptr);
    std::int64_t blocks = 0;
    while (const FTSENT* entry = walk ? ::fts_read(walk) : nullptr)
        if (entry->fts_info != FTS_DP && entry->fts_statp)
            blocks += entry->fts_statp->st_blocks;
    if (walk)
        ::fts_close(walk);
    return blocks;
}

void measure(benchmark::State& state, std::int64_t tracks, Figure figure) {
    Device& device = Device::filled(tracks);
    device.setFilesPresent(true);
    const BareConnection connection = openBare(device.databasePath(), ReaderCacheKiB);
    const BareStatement rows = prepareBare(connection.get(), MeasuredTracks);
    std::uint64_t counted = 0;
    for (auto _ : state) {
        addRound(
            figure,
            [&] {
                return costOf([&] {
                    counted = 0;
                    for (const auto& [type, metrics] : device.client().installedAssetMetrics())
                        counted += metrics[ORMetricsCountKey].unsignedValue();
                });
            },
            [&] {
                return costOf([&] {
                    std::int64_t sum = readBare(rows.get());
                    for (const char* directory : MeasuredDirectories)
                        sum += walkBare(device.files().realPath(directory));
                    benchmark::DoNotOptimize(sum);
                });
            });
        if (counted != static_cast<std::uint64_t>(tracks))
            return state.SkipWithError("not the tracks that there should be");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

// Every track is bought, with a file that a store can give again.
constexpr const char* MakeRestorable[] = {
    "BEGIN IMMEDIATE",
    "UPDATE item SET needs_restore = 0, base_location_id = 300",
    "UPDATE item_extra SET location_file_name = 'ABCD.m4a', download_identifier = 'd'",
    "UPDATE item_store SET store_item_id = item_id, account_id = 77, veska_id = 5, sync_id = "
    "item_id, purchase_history_id = 6, purchase_history_token = 7",
    "UPDATE item_artwork SET sync_artwork_token = 't' || item_id, cloud_artwork_token = '', "
    "store_artwork_token = 's', purchase_history_artwork_token = ''",
    "UPDATE change_state SET base_revision = (SELECT seq FROM sqlite_sequence WHERE name = "
    "'entity_revision')",
    "COMMIT"};

constexpr char RestorableTracks[] =
    "SELECT i.item_id FROM item i NOT INDEXED CROSS JOIN item_store s ON s.item_id = i.item_id "
    "WHERE (ifnull(s.store_item_id, 0) <> 0 AND ifnull(s.account_id, 0) <> 0 AND "
    "i.base_location_id >= 300) OR (i.media_type & 260) <> 0 OR (i.media_type & 4128) <> 0";
constexpr const char* TrackUpdates[] = {
    "UPDATE item SET needs_restore = 1, base_location_id = 0 WHERE item_id = ?",
    "UPDATE item_extra SET location_file_name = '', download_identifier = NULL WHERE item_id = ?",
    "UPDATE item_artwork SET sync_artwork_token = '', cloud_artwork_token = '', "
    "store_artwork_token = '', purchase_history_artwork_token = '' WHERE item_id = ?",
    "UPDATE item_store SET veska_id = NULL, match_redownload_parameters = '', purchase_history_id "
    "= 0, purchase_history_token = 0, purchase_history_redownload_parameters = '', sync_id = 0 "
    "WHERE item_id = ?"};
constexpr const char* RestOfRestore[] = {
    "DELETE FROM item WHERE needs_restore = 0",
    "UPDATE album SET representative_item_artwork_token = IFNULL( (SELECT best_artwork_token FROM "
    "item_artwork WHERE item_pid = representative_item_pid), '')",
    "UPDATE album_artist SET representative_item_artwork_token = IFNULL( (SELECT "
    "best_artwork_token FROM item_artwork WHERE item_pid = representative_item_pid), '')",
    "UPDATE item_artist SET artist_artwork_token = ''",
    "UPDATE album_artist SET artist_artwork_token = ''"};

void restoreBare(sqlite3* connection) {
    executeBare(connection, "BEGIN IMMEDIATE");
    std::vector<std::int64_t> items;
    {
        const BareStatement rows = prepareBare(connection, RestorableTracks);
        while (sqlite3_step(rows.get()) == SQLITE_ROW)
            items.push_back(sqlite3_column_int64(rows.get(), 0));
    }
    std::vector<BareStatement> updates;
    for (const char* update : TrackUpdates)
        updates.push_back(prepareBare(connection, update));
    for (const std::int64_t item : items)
        for (const BareStatement& update : updates) {
            sqlite3_bind_int64(update.get(), 1, item);
            runBare(update.get());
        }
    updates.clear();
    for (const char* statement : RestOfRestore)
        executeBare(connection, statement);
    executeBare(connection, "COMMIT");
}

void mark(benchmark::State& state, std::int64_t tracks, Figure figure) {
    Device& device = Device::fresh(tracks);
    device.import();
    const BareConnection connection = openBare(device.databasePath(), WriterCacheKiB);
    const BareStatement marked =
        prepareBare(connection.get(), "SELECT count(*) FROM item WHERE needs_restore = 1");
    const auto prepared = [&](const std::function<void()>& restore) {
        for (const char* statement : MakeRestorable)
            executeBare(connection.get(), statement);
        device.emptyLog();
        return costOf(restore);
    };
    for (auto _ : state) {
        addRound(
            figure, [&] { return prepared([&] { device.client().reconcileRestore(nullptr); }); },
            [&] { return prepared([&] { restoreBare(connection.get()); }); });
        if (readBare(marked.get()) != tracks)
            return state.SkipWithError("not the tracks that there should be");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    report(state, std::move(figure));
}

void registerFigure(void (*run)(benchmark::State&, std::int64_t, Figure), const Figure& figure) {
    benchmark::RegisterBenchmark(fmt::format("{}/{}", figure.what, figure.tracks).c_str(), run,
                                 figure.tracks, figure)
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace

void registerMetrics(std::int64_t tracks) {
    registerFigure(measure, {"metrics", "bare SELECT, walk", tracks, tracks, 1.3});
}

void registerRestoreMarking(std::int64_t tracks) {
    registerFigure(mark, {"restore marking", "bare UPDATEs", tracks, tracks, 1.5});
}

}  // namespace bench
