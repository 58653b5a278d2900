#include "device/downloads/download_service.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <vector>

#include "common/sqlite/sqlite_error.h"
#include "device/downloads/download_manager.h"
#include "device/downloads/download_store.h"
#include "device/system/rooted_file_system.h"

namespace downloads {
namespace {

constexpr char LogCategory[] = "orlith.downloads";
constexpr char DatabaseDirectory[] = "/var/mobile/Media/Downloads";

std::int64_t millisecondsSince1970() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Numbers by the clock: those of a database that takes the place of a lost one are not used again.
std::unique_ptr<DownloadStore> openStore(device::RootedFileSystem& fileSystem) {
    return std::make_unique<DownloadStore>(fileSystem.realPath(DatabasePath),
                                           millisecondsSince1970());
}

void setAside(device::RootedFileSystem& fileSystem) {
    const std::string mark = fmt::format(".damaged-{}", millisecondsSince1970() / 1000);
    const std::string path = DatabasePath;
    fileSystem.renameReplacing(path, path + mark);
    for (const char* companion : {"-wal", "-shm"})
        fileSystem.renameReplacing(path + companion, path + mark + companion);
}

std::unique_ptr<DownloadStore> openOrReplaceStore(device::RootedFileSystem& fileSystem,
                                                  platform::LogService& log) {
    fileSystem.createDirectory(DatabaseDirectory);
    // A single complaint is no verdict.
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            auto store = openStore(fileSystem);
            store->all();
            return store;
        } catch (const common::SqliteError& error) {
            if (!error.isDamage())
                throw;
        }
    }
    log.log({platform::LogLevel::Error, LogCategory, "device/downloads/download_service", "open",
             __LINE__, "The list of downloads is damaged. It is set aside and begun anew."});
    setAside(fileSystem);
    return openStore(fileSystem);
}

bool isScalar(const platform::Value& value) {
    return !value.isArray() && !value.isDictionary();
}

bool areScalars(const platform::Dictionary& properties) {
    return std::all_of(properties.begin(), properties.end(),
                       [](const auto& entry) { return isScalar(entry.second); });
}

bool isComplete(const NewDownload& download) {
    return isKnownKind(download.kind) && download.libraryItem != 0 && download.storeItem != 0 &&
           download.storeAccount != 0 && !download.source.empty() &&
           areScalars(download.properties);
}

DownloadRecord recordOf(const NewDownload& download) {
    DownloadRecord record;
    record.kind = download.kind;
    record.phase = VDDownloadPhaseWaiting;
    record.libraryItemIdentifier = std::to_string(download.libraryItem);
    record.properties = download.properties;
    record.properties.insert_or_assign(std::string(PropertyStoreItemIdentifier),
                                       download.storeItem);
    record.properties.insert_or_assign(std::string(PropertyStoreAccountIdentifier),
                                       download.storeAccount);
    record.properties.insert_or_assign(std::string(PropertySource), download.source);
    return record;
}

}  // namespace

// What the service and its managers share.
class DownloadService::State : public std::enable_shared_from_this<State> {
public:
    explicit State(const Configuration& configuration)
        : _log(configuration.log),
          _queue(configuration.queue),
          _store(openOrReplaceStore(configuration.fileSystem, configuration.log)) {}

    std::shared_ptr<DownloadManager> makeManager(std::optional<std::vector<std::string>> kinds) {
        auto manager = std::make_shared<DownloadManager>(
            std::move(kinds), [self = shared_from_this()] { return self->all(); }, _queue);
        const std::lock_guard lock(_mutex);
        std::erase_if(_managers, [](const auto& known) { return known.expired(); });
        _managers.push_back(manager);
        return manager;
    }

    std::int64_t add(DownloadRecord record) {
        const std::lock_guard lock(_mutex);
        record.persistentIdentifier = _store->add(record);
        const std::int64_t persistentIdentifier = record.persistentIdentifier;
        const std::string kind = record.kind;
        tellManagers(kind, {std::make_shared<Download>(std::move(record)), true, false});
        return persistentIdentifier;
    }

    bool update(std::int64_t persistentIdentifier, const std::string& phase,
                const platform::Dictionary& properties) {
        const std::lock_guard lock(_mutex);
        const auto before = _store->find(persistentIdentifier);
        if (!before)
            return false;
        _store->update(persistentIdentifier, phase, properties);
        const bool activeChanged = isActivePhase(before->phase) != isActivePhase(phase);
        auto after = std::make_shared<Download>(*_store->find(persistentIdentifier));
        tellManagers(before->kind, {std::move(after), false, activeChanged});
        return true;
    }

    bool remove(std::int64_t persistentIdentifier) {
        const std::lock_guard lock(_mutex);
        const auto before = _store->find(persistentIdentifier);
        if (!before)
            return false;
        _store->remove(persistentIdentifier);
        tellManagers(before->kind, {nullptr, true, isActivePhase(before->phase)});
        return true;
    }

private:
    // Empty, and logged, when the database cannot be read: a manager's question has no error.
    std::vector<DownloadRecord> all() {
        const std::lock_guard lock(_mutex);
        try {
            return _store->all();
        } catch (const common::SqliteError& error) {
            _log.log({platform::LogLevel::Error, LogCategory, "device/downloads/download_service",
                      "downloads", __LINE__,
                      fmt::format("The list of downloads cannot be read: {}", error.what())});
            return {};
        }
    }

    // Holding the mutex, so that managers see changes in their order.
    void tellManagers(std::string_view kind, const DownloadChange& change) {
        for (const auto& weakManager : _managers)
            if (const auto manager = weakManager.lock(); manager && manager->seesKind(kind))
                manager->note(change);
    }

    platform::LogService& _log;
    const std::shared_ptr<platform::WorkQueue> _queue;

    std::mutex _mutex;  // protects what follows
    std::unique_ptr<DownloadStore> _store;
    std::vector<std::weak_ptr<DownloadManager>> _managers;
};

DownloadService::DownloadService(const Configuration& configuration)
    : _state(std::make_shared<State>(configuration)) {}

DownloadService::~DownloadService() = default;

std::shared_ptr<VDDownloadManagerOptions> DownloadService::makeManagerOptions() {
    return std::make_shared<ManagerOptions>();
}

std::shared_ptr<VDDownloadManager> DownloadService::makeManager(
    std::shared_ptr<VDDownloadManagerOptions> options) {
    const auto own = std::dynamic_pointer_cast<ManagerOptions>(options);
    return _state->makeManager(own ? own->kinds() : std::nullopt);
}

std::optional<std::int64_t> DownloadService::enqueue(const NewDownload& download,
                                                     platform::OptionalError* error) {
    try {
        if (isComplete(download))
            return _state->add(recordOf(download));
        if (error)
            *error = platform::Error::posix(EINVAL);
    } catch (const common::SqliteError& failure) {
        if (error)
            *error = failure.platformError();
    }
    return std::nullopt;
}

platform::OptionalError DownloadService::update(std::int64_t persistentIdentifier,
                                                const std::string& phase,
                                                const platform::Dictionary& properties) {
    if (!isKnownPhase(phase) || !areScalars(properties))
        return platform::Error::posix(EINVAL);
    try {
        if (!_state->update(persistentIdentifier, phase, properties))
            return platform::Error::posix(ENOENT);
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    return std::nullopt;
}

platform::OptionalError DownloadService::remove(std::int64_t persistentIdentifier) {
    try {
        if (!_state->remove(persistentIdentifier))
            return platform::Error::posix(ENOENT);
    } catch (const common::SqliteError& failure) {
        return failure.platformError();
    }
    return std::nullopt;
}

}  // namespace downloads
