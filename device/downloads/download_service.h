// The store download framework of the device. What there is to download is state kept on the
// device, which the daemon enters here; managers show it.
//
// Any thread. Observers of all managers are called on the one queue that the service is given.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "device/downloads/download.h"
#include "platform/log.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"

namespace device {
class RootedFileSystem;
}

namespace downloads {

inline constexpr char DatabasePath[] = "/var/mobile/Media/Downloads/downloads.sqlitedb";

struct NewDownload {
    std::string kind;                 // a VDDownloadKind
    std::int64_t libraryItem = 0;     // persistent id, not 0
    std::int64_t storeItem = 0;       // not 0
    std::int64_t storeAccount = 0;    // not 0
    std::string source;               // a URL, not empty
    platform::Dictionary properties;  // others; scalars only
};

class DownloadService final : public StoreDownloadServices {
public:
    struct Configuration {
        device::RootedFileSystem& fileSystem;  // these outlive the service and its managers
        platform::LogService& log;
        std::shared_ptr<platform::WorkQueue> queue;  // serial
    };

    // Opens the downloads, or begins with none. A database that stays damaged when it is opened
    // again is set aside under its name with ".damaged-<seconds since 1970>", and logged. Throws
    // when there can be no database at all (std::exception).
    explicit DownloadService(const Configuration& configuration);
    ~DownloadService() override;

    // StoreDownloadServices. Options of another maker, and none at all, stand for every kind.
    std::shared_ptr<VDDownloadManagerOptions> makeManagerOptions() override;
    std::shared_ptr<VDDownloadManager> makeManager(
        std::shared_ptr<VDDownloadManagerOptions> options) override;

    // The new download's persistent identifier; it waits. Absent on failure: EINVAL for what is
    // missing or unknown, or the database's error.
    std::optional<std::int64_t> enqueue(const NewDownload& download,
                                        platform::OptionalError* error);
    // Sets the phase, and properties (null removes one). Reported as a change of state also when
    // all is as it was: it is a sign of progress. ENOENT when there is no such download.
    platform::OptionalError update(std::int64_t persistentIdentifier, const std::string& phase,
                                   const platform::Dictionary& properties = {});
    // Finished or cancelled. ENOENT when there is no such download.
    platform::OptionalError remove(std::int64_t persistentIdentifier);

private:
    class State;
    const std::shared_ptr<State> _state;  // managers share it
};

}  // namespace downloads
