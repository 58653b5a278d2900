#include "tests/device/korvane_import/exchange_fixture.h"

#include <algorithm>
#include <filesystem>

#include "common/qorx/writer.h"
#include "common/sqlite/database.h"
#include "device/korvane/export/export_session.h"
#include "device/korvane/save/record_export.h"
#include "device/system/memory_streams.h"

namespace test {

namespace {

template <typename Record>
platform::Data sealed(const std::string& exporter, const std::vector<Record>& records,
                      const std::vector<qorx::Deletion>& deletions) {
    platform::Data bytes;
    common::QorxWriter writer([&](std::span<const std::uint8_t> piece) -> platform::OptionalError {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        return std::nullopt;
    });
    qorx::Header header;
    header.set_purpose(qorx::Header::CHANGES);
    header.set_exporter_uid(exporter);
    writer.begin(header);
    for (const Record& record : records) {
        writer.write(record);
    }
    for (const qorx::Deletion& deletion : deletions) {
        writer.write(deletion);
    }
    writer.end();
    return bytes;
}

std::vector<std::int64_t> pids(common::Database& database, std::string_view sql) {
    std::vector<std::int64_t> found;
    common::Query rows = database.query(sql);
    while (rows.step()) {
        found.push_back(rows->int64(0));
    }
    return found;
}

void append(std::vector<std::string>& lines, qorx::Track& track) {
    track.clear_persistent_id();
    track.clear_sync_id();
    track.clear_kenning_checksum();
    lines.push_back("track " + std::to_string(track.global_id()) + " " + track.ShortDebugString());
}

void append(std::vector<std::string>& lines, qorx::Playlist& playlist) {
    playlist.clear_persistent_id();
    playlist.clear_sync_id();
    for (qorx::Playlist::Item& item : *playlist.mutable_items()) {
        item.clear_persistent_id();
        item.clear_sync_id();
    }
    lines.push_back("playlist " + std::to_string(playlist.global_id()) + " " +
                    playlist.ShortDebugString());
}

}  // namespace

platform::Data sealedTracks(const std::string& exporter, const std::vector<qorx::Track>& tracks,
                            const std::vector<qorx::Deletion>& deletions) {
    return sealed(exporter, tracks, deletions);
}

platform::Data sealedPlaylists(const std::string& exporter,
                               const std::vector<qorx::Playlist>& playlists,
                               const std::vector<qorx::Deletion>& deletions) {
    return sealed(exporter, playlists, deletions);
}

TestDevice::TestDevice() {
    open();
}

void TestDevice::open() {
    platform::OptionalError error;
    _library = korvane::Library::open({_files, _system, _log, _grabber, _inspector}, &error);
    if (!_library) {
        throw std::runtime_error(error ? error->description() : "no library");
    }
    _library->setSaver(&_saver);
    _service = std::make_unique<korvane::ImportService>(_library);
}

void TestDevice::reopen() {
    _service.reset();
    _library.reset();
    open();
}

void TestDevice::backUp() {
    _library->connections().use(true, [&](common::Database& database) {
        const std::string copy = _directory / "backup";
        std::filesystem::remove(copy);
        database.execute("VACUUM INTO ?", copy);
    });
}

bool TestDevice::hasBackup() const {
    return std::filesystem::exists(_directory / "backup");
}

void TestDevice::restoreBackup() {
    const std::string path = _files.realPath(korvane::DefaultDatabasePath);
    _service.reset();
    _library.reset();
    for (const char* ending : {"-wal", "-shm"}) {
        std::filesystem::remove(path + ending);
    }
    std::filesystem::copy_file(_directory / "backup", path,
                               std::filesystem::copy_options::overwrite_existing);
    _savedRevision = 0;
    open();
}

void TestDevice::restoreBackupUnnoticed() {
    const std::string uid = this->uid();
    restoreBackup();
    execute("UPDATE library_identity SET library_uid = '" + uid + "'");
    _service.reset();
    _library.reset();
    std::filesystem::remove(_files.realPath(korvane::DefaultDatabasePath) + ".identity");
    open();
}

ChangeStreams TestDevice::changesFor(TestDevice& other) {
    const bool isFull = other.needsEverythingOf(*this);
    const auto progress = korvane::peerProgress(other.library(), uid());
    return exportFor(other, isFull ? 0 : progress.receivedRevision, isFull);
}

bool TestDevice::needsEverythingOf(TestDevice& peer) {
    const auto received = korvane::peerProgress(library(), peer.uid()).receivedRevision;
    return received == 0 || peer.revision() < received;
}

ChangeStreams TestDevice::exportFor(TestDevice& other, std::int64_t after, bool isFull) {
    ChangeStreams streams;
    streams.upTo = revision();
    streams.isFull = isFull;
    _library->exportTarget().set(other.uid());
    for (const std::int64_t code :
         {KV3RevisionTrackingCodeTrack, KV3RevisionTrackingCodeContainer}) {
        const bool isTrack = code == KV3RevisionTrackingCodeTrack;
        std::shared_ptr<platform::MemoryOutputStream> stream = device::makeMemoryOutputStream();
        stream->open();
        korvane::ExportSession session(_library, stream);
        std::size_t records = 0;
        EXPECT_TRUE(session.begin());
        _library->enumeratePersistentIDsAfterRevision(
            after, code, KV3RevisionTypeAll,
            [&](std::int64_t pid, std::int64_t, std::int64_t kind, std::int64_t, bool&) {
                if (kind != 0 && isFull) {
                    return;
                }
                if (!isTrack && number("SELECT count(*) FROM container WHERE built_in_kind <> 0 "
                                       "AND container_pid = " +
                                       std::to_string(pid)) != 0) {
                    return;
                }
                ++records;
                const auto error =
                    kind == 0 ? (isTrack ? session.exportTrack(pid) : session.exportPlaylist(pid))
                              : (isTrack ? session.exportTrackDeleted(pid)
                                         : session.exportPlaylistDeleted(pid));
                EXPECT_FALSE(error);
            });
        EXPECT_TRUE(session.end());
        if (records != 0) {
            (isTrack ? streams.tracks : streams.playlists) = stream->takeData();
        }
        streams.records += records;
    }
    return streams;
}

ImportResult TestDevice::importData(std::optional<platform::Data> tracks,
                                    std::optional<platform::Data> playlists) {
    ImportResult result;
    _service->performImportFromSource(KV3SourceSync, korvane::DefaultDatabasePath,
                                      std::move(tracks), std::move(playlists), {},
                                      [&](bool success, const platform::OptionalError& error) {
                                          ++result.calls;
                                          result.success = success;
                                          result.error = error;
                                      });
    _system.queue->runAll();
    return result;
}

ImportResult TestDevice::import(const ChangeStreams& streams, const std::string& fullExchangeWith) {
    if (!fullExchangeWith.empty()) {
        _service->expectFullExchange(fullExchangeWith);
    }
    return importData(streams.tracks, streams.playlists);
}

std::size_t TestDevice::pullFrom(TestDevice& other) {
    const ChangeStreams streams = other.changesFor(*this);
    if (streams.records != 0 || streams.isFull) {
        const ImportResult result = import(streams, streams.isFull ? other.uid() : "");
        EXPECT_TRUE(result.success) << (result.error ? result.error->description() : "");
    }
    EXPECT_TRUE(korvane::recordReceivedRevision(library(), other.uid(), streams.upTo));
    EXPECT_TRUE(korvane::recordAcknowledgedRevision(other.library(), uid(), streams.upTo));
    return streams.records;
}

void TestDevice::syncWith(const HostData& host) {
    ++_session;
    _library->performReadOnlyDatabaseTransactionWithBlock([&](KV3DatabaseConnection&) {
        _library->saveTrackMetadataSinceRevision(_savedRevision, _session);
        _library->savePlaylistsSinceRevision(_savedRevision, _session);
        return true;
    });
    _savedRevision = revision();
    _files.createDirectory("/var/mobile/Media/Tessel_Control/Sync/Media");
    std::ofstream(_files.realPath(HostDataPath)) << host.bytes();
    _service->registerHostDataFile(HostDataPath);
    bool succeeded = false;
    _service->performImportFromSource(
        KV3SourceHostData, korvane::DefaultDatabasePath, std::nullopt, std::nullopt,
        {{std::string(KVImportOperationOptionSyncAnchorKey), "1"}},
        [&](bool success, const platform::OptionalError&) { succeeded = success; });
    _system.queue->runAll();
    EXPECT_TRUE(succeeded);
}

std::int64_t TestDevice::number(std::string_view sql) {
    return _library->connections().reading<std::int64_t>(
        [&](common::Database& database) { return database.int64(sql); });
}

std::string TestDevice::text(std::string_view sql) {
    return _library->connections().reading<std::string>([&](common::Database& database) {
        common::Query row = database.query(sql);
        return row.step() ? std::string(row->text(0)) : std::string("(no row)");
    });
}

void TestDevice::execute(std::string_view sql) {
    EXPECT_TRUE(_library->connections().write([&](common::Database& database) {
        database.execute(sql);
        return true;
    }));
}

std::int64_t TestDevice::pidOf(std::int64_t globalID) {
    return number("SELECT item_pid FROM item_extra WHERE global_id = " + std::to_string(globalID));
}

std::int64_t TestDevice::playlistOf(std::int64_t globalID) {
    return number("SELECT container_pid FROM container WHERE global_id = " +
                  std::to_string(globalID));
}

std::string TestDevice::state() {
    return _library->connections().reading<std::string>([&](common::Database& database) {
        std::vector<std::string> lines;
        korvane::RecordExport records(database);
        qorx::Track track;
        for (const std::int64_t pid : pids(database, "SELECT item_pid FROM item")) {
            records.track(pid, track);
            append(lines, track);
        }
        qorx::Playlist playlist;
        for (const std::int64_t pid :
             pids(database, "SELECT container_pid FROM container WHERE built_in_kind = 0")) {
            records.playlist(pid, playlist);
            append(lines, playlist);
        }
        std::ranges::sort(lines);
        std::string state;
        for (const std::string& line : lines) {
            state += line + "\n";
        }
        return state;
    });
}

std::string TestDevice::dump() {
    return dumpOf(*_library);
}

void ExchangeTest::settle() {
    // Some news are answered; the answers are not.
    constexpr int MostRounds = 4;
    for (int round = 0; round < MostRounds; ++round) {
        std::size_t records = 0;
        for (TestDevice* to : {&a, &b, &c}) {
            for (TestDevice* from : {&a, &b, &c}) {
                records += to == from ? 0 : to->pullFrom(*from);
            }
        }
        if (records == 0) {
            return;
        }
    }
    ADD_FAILURE() << "the devices do not come to rest";
}

void ExchangeTest::expectAgreement() {
    EXPECT_EQ(a.state(), b.state());
    EXPECT_EQ(b.state(), c.state());
}

}  // namespace test
