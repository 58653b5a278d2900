// Importing another device's changes into an empty library, beside a changeset of the session
// extension with the same rows, applied to empty tables with the same indices.
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <semaphore>

#include "bench/bare_export.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/library_bench.h"
#include "device/system/memory_streams.h"
#include "platform/media_library.h"

namespace bench {
namespace {

constexpr char NewTracks[] = "import of changes, new tracks";
constexpr int Rounds = 3;

platform::Data exportedTracks() {
    const std::shared_ptr<KV3Korvane> library = KV3Korvane::sharedLibrary();
    const std::shared_ptr<platform::MemoryOutputStream> stream = device::makeMemoryOutputStream();
    stream->open();
    const auto session = KV3QORXExportSession::initWithLibrary(library, stream);
    session->begin();
    library->enumeratePersistentIDsAfterRevision(
        0, KV3RevisionTrackingCodeTrack, KV3RevisionTypeAll,
        [&](std::int64_t pid, std::int64_t, std::int64_t, std::int64_t, bool&) {
            session->exportTrack(pid);
        });
    session->end();
    return stream->takeData();
}

// A file, so that it takes no memory while the other side is measured.
void keep(const std::string& path, const platform::Data& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

platform::Data kept(const std::string& path) {
    platform::Data bytes(std::filesystem::file_size(path));
    std::ifstream(path, std::ios::binary)
        .read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

bool import(const platform::Data& tracks) {
    std::binary_semaphore finished(0);
    bool succeeded = false;
    KVMediaLibraryService::sharedMediaLibraryService().performImportFromSource(
        KV3SourceSync, KV3Korvane::sharedLibraryDatabasePath(), tracks, std::nullopt, {},
        [&](bool success, const platform::OptionalError&) {
            succeeded = success;
            finished.release();
        });
    finished.acquire();
    return succeeded;
}

void importChanges(benchmark::State& state, std::int64_t tracks) {
    Device& first = Device::filled(tracks);
    first.emptyLog();
    const test::TemporaryDirectory directory;
    const std::string records = directory / "records";
    const std::string changeset = directory / "changeset";
    keep(records, exportedTracks());
    constexpr RecordedTables Tables = RecordedTables::TracksAndChangeLog;
    const std::string library = directory / "library";
    std::filesystem::copy_file(first.databasePath(), library);
    keep(changeset, RecordedChanges(library, directory / "recorded", Tables).changeset());
    Figure figure{NewTracks, "session changeset", tracks, tracks, 1.0};
    for (auto _ : state) {
        bool succeeded = false;
        const std::string copy = directory / "applied";
        addRound(
            figure,
            [&] {
                Device::fresh(tracks);
                const platform::Data stream = kept(records);
                return costOf([&] { succeeded = import(stream); });
            },
            [&] { return applyChangeset(kept(changeset), library, copy, Tables); });
        for (const char* part : {"", "-wal", "-shm"})
            std::filesystem::remove(copy + part);
        if (!succeeded)
            return state.SkipWithError("the changes were refused");
        state.SetIterationTime(figure.ours.back().wallSeconds);
    }
    Device::release();
    report(state, std::move(figure));
}

}  // namespace

void registerImportsOfChanges(std::int64_t tracks) {
    benchmark::RegisterBenchmark(fmt::format("{}/{}", NewTracks, tracks).c_str(), importChanges,
                                 tracks)
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace bench
