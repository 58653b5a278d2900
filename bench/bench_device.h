// Purpose: an embedded device in a fresh directory, with the real library and plug-in, and a
//          library of so many tracks.
// Calling thread: one at a time. There is one device at a time.
// Failure: whatever does not work ends the program.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "SyncBundle/KVSyncClient.h"
#include "device/orlith/embedded_platform.h"
#include "device/orlith/notices.h"
#include "device/system/log_service.h"
#include "tests/support/temporary_directory.h"

namespace bench {

class Device {
public:
    // An empty library, and the data of a host with so many tracks.
    explicit Device(std::int64_t tracks);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // A new one with an empty library, which is the current one from here on.
    static Device& fresh(std::int64_t tracks);
    // The current one, with its library filled; made when there is none of this size.
    static Device& filled(std::int64_t tracks);
    // Ends the current one.
    static void release();

    std::int64_t tracks() const { return _tracks; }
    // The host's data, through the import service.
    void import();
    // What every import after this writes lies in the write-ahead log, which is empty now.
    void emptyLog();
    // The size of the write-ahead log in bytes.
    std::uint64_t logSize() const;
    std::int64_t revision();
    // Every track's file is where the library says, as far as the library knows, and every album's
    // picture is on the device; or every track lacks its file.
    void setFilesPresent(bool arePresent);

    orlith::EmbeddedPlatform& platform() { return *_platform; }
    KVSyncClient& client() { return *_client; }
    device::RootedFileSystem& files() { return _platform->operatingSystem().fileSystem(); }
    std::string databasePath();  // of this machine
    std::string operator/(const std::string& name) const { return _directory / name; }

private:
    void makePictures();

    const std::int64_t _tracks;
    test::TemporaryDirectory _directory;
    device::LogService _log{platform::LogLevel::Warning};
    orlith::Notices _notices;
    std::unique_ptr<orlith::EmbeddedPlatform> _platform;
    std::shared_ptr<KVSyncClient> _client;
    bool _isFilled = false;
    bool _hasPictures = false;
};

}  // namespace bench
