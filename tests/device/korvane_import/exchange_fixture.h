// Devices with real libraries that exchange changes, on one clock that the test moves.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/qorx/qorx.pb.h"
#include "device/korvane/import/import_service.h"
#include "device/korvane/peers.h"
#include "tests/device/korvane_import/import_fixture.h"

namespace test {

// One section each, as an export writes them; absent without records.
struct ChangeStreams {
    std::optional<platform::Data> tracks;
    std::optional<platform::Data> playlists;
    std::size_t records = 0;
    std::int64_t upTo = 0;  // the exporter's revision
    bool isFull = false;
};

class TestDevice {
public:
    TestDevice();

    korvane::Library& library() { return *_library; }
    korvane::ImportService& service() { return *_service; }
    const std::string& uid() { return _library->uid(); }

    // Closes the library and opens it again.
    void reopen();
    // The database as it is now, to be put back later.
    void backUp();
    void restoreBackup();
    // As a whole disk is put back: nothing beside the database tells of what has been since.
    void restoreBackupUnnoticed();
    bool hasBackup() const;

    // Changes for the other device after what it has received; all of them when it has to begin
    // anew.
    ChangeStreams changesFor(TestDevice& other);
    // Nothing was received of the peer yet, or its revisions have gone back.
    bool needsEverythingOf(TestDevice& peer);
    // A full exchange begins from nothing and tells of no deletions.
    ChangeStreams exportFor(TestDevice& other, std::int64_t after, bool isFull);
    ImportResult import(const ChangeStreams& streams, const std::string& fullExchangeWith = {});
    ImportResult importData(std::optional<platform::Data> tracks,
                            std::optional<platform::Data> playlists);
    // Brings this device up to date from the other; answers with the number of records.
    std::size_t pullFrom(TestDevice& other);
    // As a session with a host.
    void syncWith(const HostData& host);

    std::int64_t number(std::string_view sql);
    std::string text(std::string_view sql);
    void execute(std::string_view sql);
    std::int64_t pidOf(std::int64_t globalID);
    std::int64_t playlistOf(std::int64_t globalID);
    std::int64_t revision() { return _library->currentRevision(); }
    // All that travels, without the device's own ids: the same on devices that agree.
    std::string state();
    // Every table's rows as text.
    std::string dump();

    LibraryTestSystem& system() { return _system; }

private:
    void open();

    // In memory: histories commit often, and nothing here is about the disk.
    TemporaryDirectory _directory{
        std::filesystem::exists("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path()};
    device::RootedFileSystem _files{_directory.path()};
    LibraryTestSystem _system{_files};
    RecordingLog _log;
    FakeGrabber _grabber;
    FakeInspector _inspector;
    korvane::HostSaver _saver;
    std::shared_ptr<korvane::Library> _library;
    std::unique_ptr<korvane::ImportService> _service;
    std::uint32_t _session = 0;
    std::int64_t _savedRevision = 0;
};

// Records of a section, sealed.
platform::Data sealedTracks(const std::string& exporter, const std::vector<qorx::Track>& tracks,
                            const std::vector<qorx::Deletion>& deletions = {});
platform::Data sealedPlaylists(const std::string& exporter,
                               const std::vector<qorx::Playlist>& playlists,
                               const std::vector<qorx::Deletion>& deletions = {});

class ExchangeTest : public testing::Test {
protected:
    // Later than everything so far.
    void tick(double seconds = 1) {
        for (TestDevice* device : {&a, &b, &c}) {
            device->system().now += seconds;
        }
    }
    void pull(TestDevice& to, TestDevice& from) { to.pullFrom(from); }
    // Each way, until nothing is left; not often.
    void settle();
    void expectAgreement();

    TestDevice a, b, c;
};

}  // namespace test
