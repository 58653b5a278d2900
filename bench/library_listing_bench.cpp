// Full ordered listings of a library: through the track query that bundles use, and as the same
// statement with ORDER BY stepped through directly, which is what the first is measured against.
#include <benchmark/benchmark.h>

#include <map>

#include "common/sqlite/database.h"
#include "common/sqlite/transaction.h"
#include "device/korvane/library.h"
#include "device/korvane/track_query.h"
#include "tests/device/korvane/library_fixture.h"

namespace {

constexpr std::array<KV3TrackProperty, 18> Properties{KV3TrackPropertySyncArtworkToken,
                                                      KV3TrackPropertyBaseLocationID,
                                                      KV3TrackPropertyDownloadIdentifier,
                                                      KV3TrackPropertyMediaType,
                                                      KV3TrackPropertyGlobalID,
                                                      KV3TrackPropertyKenningChecksum,
                                                      KV3TrackPropertyPendingKenningChecksum,
                                                      KV3TrackPropertyPodcastExternalGUID,
                                                      KV3TrackPropertyStoreAccountID,
                                                      KV3TrackPropertyStoreItemID,
                                                      KV3TrackPropertyStoreFlavor,
                                                      KV3TrackPropertyStoreMatchedStatus,
                                                      KV3TrackPropertyStoreRedownloadedStatus,
                                                      KV3TrackPropertyStoreVeskaID,
                                                      KV3TrackPropertySyncID,
                                                      KV3TrackPropertyNeedsRestore,
                                                      KV3TrackPropertyIsRental,
                                                      KV3TrackPropertyTitle};

constexpr char OrderedStatement[] =
    "SELECT i.item_pid, w.sync_artwork_token, i.base_location_id, e.download_identifier, "
    "i.media_type, e.kenning_id, km.checksum, e.pending_kenning_checksum, s.podcast_guid, "
    "s.account_id, s.store_item_id, s.flavor, s.matched_status, s.redownloaded_status, s.veska_id, "
    "s.sync_id, i.needs_restore, i.is_rental, e.title FROM item i JOIN item_extra e ON e.item_id = "
    "i.item_id JOIN item_store s ON s.item_id = i.item_id JOIN item_artwork w ON w.item_id = "
    "i.item_id LEFT JOIN kenning_metadata km ON km.kenning_id = e.kenning_id WHERE "
    "(ifnull(s.veska_id, 0) = 0 AND s.sync_id <> 0) OR i.needs_restore = 1 ORDER BY "
    "i.album_artist_order, i.album_order, i.disc_number, i.track_number";

// A library of so many tracks, every eighth of which the host does not know.
class FilledLibrary {
public:
    explicit FilledLibrary(std::int64_t tracks) {
        library = korvane::Library::open({files, system, log, grabber, inspector}, nullptr);
        library->connections().write([&](common::Database& database) {
            for (std::int64_t i = 0; i < tracks; ++i) {
                const std::int64_t album = i / 12;
                const auto scattered = static_cast<std::uint64_t>(i + 1) * 0x9e3779b97f4a7c15u;
                test::addTrack(
                    database,
                    {.pid = static_cast<std::int64_t>(scattered >> 1),
                     .syncID = i % 8 == 0 ? 0 : i,
                     .title = "Title of song " + std::to_string(scattered),
                     .artist = "Artist " + std::to_string(album * 31 % (tracks / 40 + 50)),
                     .album = "Album name " + std::to_string(scattered % (tracks / 12 + 1)),
                     .albumArtist = "Artist " + std::to_string(album % 997),
                     .disc = 1,
                     .number = static_cast<int>(i % 12)});
            }
            database.executeScript(
                "UPDATE item_artwork SET sync_artwork_token = 'art-' || item_pid; UPDATE "
                "item_store "
                "SET flavor = 'flavor', podcast_guid = 'guid' || item_pid");
            return true;
        });
    }
    static FilledLibrary& of(std::int64_t tracks) {
        static std::map<std::int64_t, std::unique_ptr<FilledLibrary>> libraries;
        auto& library = libraries[tracks];
        if (!library)
            library = std::make_unique<FilledLibrary>(tracks);
        return *library;
    }

    test::TemporaryDirectory directory;
    device::RootedFileSystem files{directory.path()};
    test::LibraryTestSystem system{files};
    test::RecordingLog log;
    test::FakeGrabber grabber;
    test::FakeInspector inspector;
    std::shared_ptr<korvane::Library> library;
};

void StatementWithOrderBy(benchmark::State& state) {
    FilledLibrary& filled = FilledLibrary::of(state.range(0));
    for (auto _ : state)
        filled.library->connections().use(true, [&](common::Database& database) {
            auto rows = database.query(OrderedStatement);
            std::uint64_t sum = 0;
            while (rows.step())
                for (int column = 0; column < 19; ++column)
                    sum += rows->view(column).string().size();
            benchmark::DoNotOptimize(sum);
        });
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void TrackQueryInOrder(benchmark::State& state) {
    FilledLibrary& filled = FilledLibrary::of(state.range(0));
    using P = KV3ComparisonPredicate;
    const KV3Predicate wanted = KV3AnyCompoundPredicate::predicateMatchingPredicates(
        {KV3AllCompoundPredicate::predicateMatchingPredicates(
             {P::predicateWithPropertyEqualToInt64(KV3TrackPropertyStoreVeskaID, 0),
              P::predicateWithProperty(KV3TrackPropertySyncID, 0, KV3ComparisonNotEqual)}),
         P::predicateWithPropertyEqualToInt64(KV3TrackPropertyNeedsRestore, 1)});
    for (auto _ : state) {
        std::uint64_t sum = 0;
        korvane::TrackQuery(filled.library, wanted,
                            {{KV3TrackPropertyAlbumArtistOrder},
                             {KV3TrackPropertyAlbumOrder},
                             {KV3TrackPropertyDiscNumber},
                             {KV3TrackPropertyTrackNumber}})
            .enumeratePersistentIDsAndProperties(
                Properties, [&](std::int64_t pid, KV3TrackRow row) {
                    sum += static_cast<std::uint64_t>(pid) + row[17].string().size();
                });
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(StatementWithOrderBy)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(TrackQueryInOrder)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
