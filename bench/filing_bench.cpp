// Filing received files one at a time, each durable before the next, beside a bare sync, rename and
// transaction.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "bench/bare_inserts.h"
#include "bench/bare_sqlite.h"
#include "bench/bench_device.h"
#include "bench/figures.h"
#include "bench/host_data.h"
#include "bench/library_bench.h"
#include "device/orlith/asset_filer.h"

namespace bench {
namespace {

constexpr char Filing[] = "filing a received file";
constexpr int Rounds = 5;
constexpr std::size_t FilesPerRound = 100;

void require(bool holds, const std::string& text) {
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(1);
}

// A received file, complete, its bytes on their way to the disk.
orlith::ReceivedAsset receive(Device& device, const std::shared_ptr<ORAsset>& asset) {
    platform::OptionalError error;
    orlith::ReceivedAsset received;
    received.asset = asset;
    received.parts = orlith::partsOf(*asset);
    received.fileExtension = "mp3";
    received.file = orlith::IncomingFile::open(
        device.files(), orlith::StagingArea::partialPath(asset->identifier(), 1), FileSize, 0,
        error);
    require(received.file && !received.file->write(std::string(FileSize, 'm')) &&
                !received.file->finish({}),
            "a file could not be received");
    return received;
}

// The same rows, changed by hand.
class BareFiler {
public:
    BareFiler(Device& device)
        : _device(device),
          _path(device / "bare"),
          _directory(device / "bare-files"),
          _connection(nullptr, sqlite3_close),
          _item(nullptr, sqlite3_finalize),
          _extra(nullptr, sqlite3_finalize) {
        std::filesystem::create_directories(_directory);
        copyWithInserts(device.databasePath(), _path);
        _connection = openBare(_path, WriterCacheKiB);
        _item = prepareBare(_connection.get(),
                            "UPDATE item SET base_location_id = 200, needs_restore = 0 WHERE "
                            "item_pid = (SELECT item_pid FROM item_store WHERE sync_id = ?1 AND "
                            "sync_id <> 0)");
        _extra = prepareBare(_connection.get(),
                             "UPDATE item_extra SET location_file_name = ?2, download_identifier = "
                             "NULL, total_size = ?3 WHERE item_pid = (SELECT item_pid FROM "
                             "item_store WHERE sync_id = ?1 AND sync_id <> 0)");
    }

    void receive(const std::string& identifier) {
        const std::string bytes(FileSize, 'm');
        _received = _directory + "/" + identifier;
        _fd = ::open(_received.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        require(::write(_fd, bytes.data(), bytes.size()) == FileSize, "a file could not be made");
        ::sync_file_range(_fd, 0, 0, SYNC_FILE_RANGE_WRITE);
    }

    void file(std::int64_t syncID) {
        const std::string name = fmt::format("{}.mp3", syncID);
        require(::fdatasync(_fd) == 0, "fdatasync");
        require(std::rename(_received.c_str(), (_directory + "/" + name).c_str()) == 0, "rename");
        executeBare(_connection.get(), "BEGIN IMMEDIATE");
        sqlite3_bind_int64(_item.get(), 1, syncID);
        runBare(_item.get());
        sqlite3_bind_int64(_extra.get(), 1, syncID);
        sqlite3_bind_text(_extra.get(), 2, name.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int64(_extra.get(), 3, FileSize);
        runBare(_extra.get());
        executeBare(_connection.get(), "COMMIT");
        ::close(_fd);
    }

private:
    Device& _device;
    const std::string _path;
    const std::string _directory;
    BareConnection _connection;
    BareStatement _item;
    BareStatement _extra;
    std::string _received;
    int _fd = -1;
};

void fileReceived(benchmark::State& state, std::int64_t tracks) {
    Figure figure{Filing, "sync, rename, transaction",
                  tracks, static_cast<std::int64_t>(FilesPerRound),
                  1.3,    Clock::Wall};
    Device& device = Device::filled(tracks);
    device.setFilesPresent(false);
    BareFiler peer(device);
    const auto assets = device.client().outstandingAssetTransfersWithDownloadManager(
        device.platform().downloadManager().get());
    require(assets.size() >= Rounds * FilesPerRound, "there are too few tracks");
    orlith::AssetFiler filer(device.client(), device.platform().mediaLibrary(),
                             device.platform().libraryAccess(), device.files(),
                             device.platform().syncDaemon().stagehold());
    // Scattered over the library, as files of random ids are.
    const std::size_t step = assets.size() / (Rounds * FilesPerRound);
    std::size_t next = 0;
    for (auto _ : state) {
        Cost ours, peers;
        for (std::size_t i = 0; i < FilesPerRound; ++i, next += step) {
            const std::shared_ptr<ORAsset>& asset = assets[next];
            orlith::ReceivedAsset received = receive(device, asset);
            ours += timesOf([&] {
                const orlith::FilingResult result = filer.file(received);
                require(!result.failure, "a file could not be filed");
            });
            received.file.reset();
            peer.receive(asset->identifier());
            peers += timesOf([&] { peer.file(std::stoll(asset->identifier())); });
        }
        figure.ours.push_back(ours);
        figure.peers.push_back(peers);
        state.SetIterationTime(ours.wallSeconds);
    }
    report(state, std::move(figure));
}

}  // namespace

void registerFiling(std::int64_t tracks) {
    benchmark::RegisterBenchmark(fmt::format("{}/{}", Filing, tracks).c_str(), fileReceived, tracks)
        ->Iterations(Rounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace bench
