// Exporting changes for another device: all tracks, beside the same rows read and encoded with the
// database's own interface and beside a changeset of the session extension; and the few that
// changed of many.
#include <fmt/format.h>

#include <random>
#include <vector>

#include "bench/bare_export.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"
#include "common/sqlite/database.h"
#include "device/korvane/connections.h"
#include "device/korvane/library.h"
#include "platform/media_library.h"

namespace bench {
namespace {

constexpr char AllTracks[] = "export, all tracks";
constexpr char FewChanged[] = "export, 1,000 changed";
constexpr std::int64_t ChangedTracks = 1'000;
constexpr int Rounds = 5;

// Counts what it is given.
class CountingStream final : public platform::OutputStream {
public:
    void open() override {}
    void close() override {}
    platform::OptionalError write(std::span<const std::uint8_t> piece) override {
        bytes += piece.size();
        return std::nullopt;
    }
    std::string description() const override { return "<CountingStream>"; }

    std::uint64_t bytes = 0;
};

struct Exported {
    std::vector<std::int64_t> tracks;  // kept when asked for
    std::uint64_t bytes = 0;
    bool isWhole = false;
};

// As the plug-in asks for it.
Exported exportAfter(std::int64_t revision, bool keepsIDs) {
    Exported exported;
    const std::shared_ptr<KV3Korvane> library = KV3Korvane::sharedLibrary();
    const auto stream = std::make_shared<CountingStream>();
    const auto session = KV3QORXExportSession::initWithLibrary(library, stream);
    session->begin();
    library->enumeratePersistentIDsAfterRevisionForMediaTypes(
        revision, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll, {},
        [&](std::int64_t pid, std::int64_t, std::int64_t, std::int64_t, bool& stop) {
            if (keepsIDs)
                exported.tracks.push_back(pid);
            stop = session->exportTrack(pid).has_value();
        });
    exported.isWhole = session->end();
    exported.bytes = stream->bytes;
    return exported;
}

double perTrack(std::uint64_t bytes, std::int64_t tracks) {
    return static_cast<double>(bytes) / static_cast<double>(tracks);
}

void exportAll(benchmark::State& state, std::int64_t tracks) {
    Device& device = Device::filled(tracks);
    device.emptyLog();
    const BareConnection connection = openBare(device.databasePath(), ReaderCacheKiB);
    BareTrackReader bare(connection.get());
    Figure figure{AllTracks, "bare reads, records", tracks, tracks, 1.3};
    Exported exported;
    for (auto _ : state) {
        addRound(
            figure, [&] { return costOf([&] { exported = exportAfter(0, false); }); },
            [&] { return costOf([&] { benchmark::DoNotOptimize(bare.readAll()); }); });
        if (!exported.isWhole)
            return state.SkipWithError("the export is not whole");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    state.counters["bytes_per_track"] = perTrack(exported.bytes, tracks);
    report(state, std::move(figure));
}

void exportAsChangeset(benchmark::State& state, std::int64_t tracks) {
    Device& device = Device::filled(tracks);
    device.emptyLog();
    RecordedChanges recorded(device.databasePath(), device / "recorded");
    Figure figure{"export, all tracks, changeset", "session changeset", tracks, tracks, 0.8};
    Exported exported;
    std::uint64_t changesetBytes = 0;
    for (auto _ : state) {
        addRound(
            figure, [&] { return costOf([&] { exported = exportAfter(0, false); }); },
            [&] { return costOf([&] { changesetBytes = recorded.makeChangeset(); }); });
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    state.counters["bytes_per_track"] = perTrack(exported.bytes, tracks);
    state.counters["peer_bytes_per_track"] = perTrack(changesetBytes, tracks);
    report(state, std::move(figure));
}

// Rates tracks all over the library, in one of its transactions.
void changeSome(Device& device) {
    std::mt19937_64 random(3);
    const auto tracks = static_cast<std::uint64_t>(device.tracks());
    device.platform().library().connections().write([&](common::Database& database) {
        for (std::int64_t change = 0; change < ChangedTracks; ++change)
            database.execute(
                "UPDATE item_stats SET user_rating = (user_rating + 20) % 100, "
                "rating_changed_ms = rating_changed_ms + 1 WHERE item_id = ?",
                static_cast<std::int64_t>(random() % tracks) + 1);
        return true;
    });
}

// On new connections, as every session has them: the one before has closed its own.
void exportFew(benchmark::State& state, std::int64_t tracks) {
    Device& device = Device::filled(tracks);
    const std::int64_t before = device.revision();
    changeSome(device);
    device.emptyLog();
    Exported exported = exportAfter(before, true);
    const std::vector<std::int64_t> changed = exported.tracks;
    Figure figure{FewChanged, "bare reads by id", tracks, static_cast<std::int64_t>(changed.size()),
                  1.5};
    for (auto _ : state) {
        addRound(
            figure,
            [&] {
                KV3Korvane::sharedLibrary()->reconnectToDatabase();
                return costOf([&] { exported = exportAfter(before, false); });
            },
            [&] {
                return costOf([&] {
                    const BareConnection connection =
                        openBare(device.databasePath(), ReaderCacheKiB);
                    benchmark::DoNotOptimize(BareTrackReader(connection.get()).readSome(changed));
                });
            });
        if (!exported.isWhole)
            return state.SkipWithError("the export is not whole");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    state.counters["bytes_per_track"] = perTrack(exported.bytes, figure.items);
    report(state, std::move(figure));
}

}  // namespace

void registerExports(std::int64_t tracks) {
    const auto add = [tracks](const char* name, auto* function) {
        benchmark::RegisterBenchmark(fmt::format("{}/{}", name, tracks).c_str(), function, tracks)
            ->Iterations(Rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    };
    add(AllTracks, exportAll);
    add("export, all tracks, changeset", exportAsChangeset);
    add(FewChanged, exportFew);
}

void registerExportGrowth(std::int64_t small, std::int64_t large) {
    benchmark::RegisterBenchmark(fmt::format("{}, growth", FewChanged).c_str(),
                                 [=](benchmark::State& state) {
                                     for (auto _ : state)
                                         reportGrowth(state, FewChanged, small, large, 2.0);
                                 })
        ->Iterations(1);
}

}  // namespace bench
