// The downloads in hand: kept on the device, and shown by managers, which are told of every change
// in its order.
//
// Any thread. Whoever changes throws SqliteError; a change that failed did not happen, and nobody
// is told of it. Observers of all managers are called on the one queue that the list is given.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "device/downloads/download.h"
#include "platform/log.h"
#include "platform/operating_system.h"
#include "platform/store_downloads.h"

namespace device {
class RootedFileSystem;
}

namespace downloads {

class DownloadManager;
class DownloadStore;
struct DownloadChange;

inline constexpr char DownloadsDirectory[] = "/var/mobile/Media/Downloads";
inline constexpr char DatabasePath[] = "/var/mobile/Media/Downloads/downloads.sqlitedb";
inline constexpr char LogCategory[] = "orlith.downloads";

class DownloadList : public std::enable_shared_from_this<DownloadList> {
public:
    // Opens the downloads, or begins with none. A database that stays damaged when it is opened
    // again is set aside under its name with ".damaged-<seconds since 1970>", and logged. Throws
    // when there can be no database at all (std::exception). File system and log outlive the list;
    // `queue` is serial.
    DownloadList(device::RootedFileSystem& fileSystem, platform::LogService& log,
                 std::shared_ptr<platform::WorkQueue> queue);
    ~DownloadList();

    // A manager that sees these kinds, all when absent; it keeps the list.
    std::shared_ptr<DownloadManager> makeManager(std::optional<std::vector<std::string>> kinds);

    // Oldest first. Empty, and logged, when the database cannot be read.
    std::vector<DownloadRecord> all();
    std::optional<DownloadRecord> find(std::int64_t persistentIdentifier);

    // Gives the record a number that was never used before, and returns it.
    std::int64_t add(DownloadRecord record);
    // Sets the phase, and properties (null removes one). Told as a change of state also when all is
    // as it was: it is a sign of progress. False when there is no such download.
    bool update(std::int64_t persistentIdentifier, const std::string& phase,
                const platform::Dictionary& properties = {});
    // Sets properties without telling anybody.
    bool keep(std::int64_t persistentIdentifier, const platform::Dictionary& properties);
    // Tells of progress; nothing is written.
    void tell(std::int64_t persistentIdentifier);
    // Finished or cancelled. False when there is no such download.
    bool remove(std::int64_t persistentIdentifier);
    enum class Cancellation { Done, Unknown, TooLate };
    // As remove, but not of one that is being installed.
    Cancellation cancel(std::int64_t persistentIdentifier);

private:
    void removeHoldingMutex(const DownloadRecord& record);
    // Holding the mutex, so that managers see changes in their order.
    void tellManagers(std::string_view kind, const DownloadChange& change);

    platform::LogService& _log;
    const std::shared_ptr<platform::WorkQueue> _queue;

    std::mutex _mutex;  // protects what follows
    std::unique_ptr<DownloadStore> _store;
    std::vector<std::weak_ptr<DownloadManager>> _managers;
};

}  // namespace downloads
