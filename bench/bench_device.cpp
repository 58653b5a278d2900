#include "bench/bench_device.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <semaphore>

#include "bench/host_data.h"
#include "common/sqlite/database.h"
#include "device/korvane/artwork_store.h"
#include "platform/media_library.h"

namespace bench {
namespace {

constexpr char HostDataPath[] = "/host.qorx";

std::unique_ptr<Device> current;

void require(const platform::OptionalError& error) {
    if (!error)
        return;
    fmt::print(stderr, "{}\n", error->description());
    std::exit(1);
}

}  // namespace

Device::Device(std::int64_t tracks) : _tracks(tracks) {
    platform::OptionalError error;
    _platform = orlith::EmbeddedPlatform::open(_directory.path(), _log, _notices, error);
    require(error);
    platform::Platform::install(_platform.get());
    _client = KVSyncClient::init();
    require(_platform->syncDaemon().stagehold().makeDirectories());
    writeHostData(files().realPath(HostDataPath), tracks);
    _platform->libraryAccess().registerHostData(HostDataPath);
}

Device::~Device() {
    _client.reset();
    _platform->shutDown();
    platform::Platform::install(nullptr);
    _platform.reset();
}

Device& Device::fresh(std::int64_t tracks) {
    current.reset();
    current = std::make_unique<Device>(tracks);
    return *current;
}

Device& Device::filled(std::int64_t tracks) {
    if (!current || current->_tracks != tracks)
        fresh(tracks);
    if (!current->_isFilled)
        current->import();
    return *current;
}

void Device::release() {
    current.reset();
}

void Device::import() {
    std::binary_semaphore finished(0);
    platform::OptionalError failure;
    KVMediaLibraryService::sharedMediaLibraryService().performImportFromSource(
        KV3SourceHostData, KV3Korvane::sharedLibraryDatabasePath(), std::nullopt, std::nullopt,
        {{std::string(KVImportOperationOptionSyncAnchorKey), "1"}},
        [&](bool, const platform::OptionalError& error) {
            failure = error;
            finished.release();
        });
    finished.acquire();
    require(failure);
    _isFilled = true;
}

void Device::emptyLog() {
    common::Database database(databasePath(), {.create = false});
    database.executeScript("PRAGMA wal_checkpoint(TRUNCATE)");
}

std::uint64_t Device::logSize() const {
    return std::filesystem::file_size(_platform->operatingSystem().fileSystem().realPath(
                                          _platform->mediaLibrary().sharedLibraryDatabasePath()) +
                                      "-wal");
}

std::int64_t Device::revision() {
    return _platform->libraryAccess().revision();
}

void Device::setFilesPresent(bool arePresent) {
    {
        common::Database database(databasePath(), {.create = false, .cacheKiB = 64 * 1024});
        database.execute(
            "UPDATE item SET base_location_id = CASE WHEN ? THEN 200 + item_id % 50 "
            "ELSE 0 END",
            arePresent);
        database.execute(
            "UPDATE item_extra SET location_file_name = CASE WHEN ? THEN 'ABCD.mp3' "
            "ELSE '' END",
            arePresent);
    }
    emptyLog();
    if (arePresent && !_hasPictures)
        makePictures();
}

void Device::makePictures() {
    for (std::int64_t album = 0; album <= (_tracks - 1) / TracksPerAlbum; ++album) {
        const std::filesystem::path path = files().realPath(korvane::ArtworkStore::originalPath(
            korvane::artworkRelativePath(artworkTokenOf(album))));
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "picture";
    }
    _hasPictures = true;
}

std::string Device::databasePath() {
    return files().realPath(KV3Korvane::sharedLibraryDatabasePath());
}

}  // namespace bench
