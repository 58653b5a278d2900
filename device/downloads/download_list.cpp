#include "device/downloads/download_list.h"

#include <fmt/format.h>

#include <chrono>

#include "common/sqlite/sqlite_error.h"
#include "device/downloads/download_manager.h"
#include "device/downloads/download_store.h"
#include "device/system/rooted_file_system.h"

namespace downloads {
namespace {

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
    fileSystem.createDirectory(DownloadsDirectory);
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
    log.log({platform::LogLevel::Error, LogCategory, "device/downloads/download_list", "open",
             __LINE__, "The list of downloads is damaged. It is set aside and begun anew."});
    setAside(fileSystem);
    return openStore(fileSystem);
}

}  // namespace

DownloadList::DownloadList(device::RootedFileSystem& fileSystem, platform::LogService& log,
                           std::shared_ptr<platform::WorkQueue> queue)
    : _log(log), _queue(std::move(queue)), _store(openOrReplaceStore(fileSystem, log)) {}

DownloadList::~DownloadList() = default;

std::shared_ptr<DownloadManager> DownloadList::makeManager(
    std::optional<std::vector<std::string>> kinds) {
    auto manager = std::make_shared<DownloadManager>(
        std::move(kinds), [self = shared_from_this()] { return self->all(); }, _queue);
    const std::lock_guard lock(_mutex);
    std::erase_if(_managers, [](const auto& known) { return known.expired(); });
    _managers.push_back(manager);
    return manager;
}

std::vector<DownloadRecord> DownloadList::all() {
    const std::lock_guard lock(_mutex);
    try {
        return _store->all();
    } catch (const common::SqliteError& error) {
        _log.log({platform::LogLevel::Error, LogCategory, "device/downloads/download_list",
                  "downloads", __LINE__,
                  fmt::format("The list of downloads cannot be read: {}", error.what())});
        return {};
    }
}

std::optional<DownloadRecord> DownloadList::find(std::int64_t persistentIdentifier) {
    const std::lock_guard lock(_mutex);
    return _store->find(persistentIdentifier);
}

std::int64_t DownloadList::add(DownloadRecord record) {
    const std::lock_guard lock(_mutex);
    record.persistentIdentifier = _store->add(record);
    const std::int64_t persistentIdentifier = record.persistentIdentifier;
    const std::string kind = record.kind;
    tellManagers(kind, {std::make_shared<Download>(std::move(record)), true, false});
    return persistentIdentifier;
}

bool DownloadList::update(std::int64_t persistentIdentifier, const std::string& phase,
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

bool DownloadList::keep(std::int64_t persistentIdentifier, const platform::Dictionary& properties) {
    const std::lock_guard lock(_mutex);
    const auto record = _store->find(persistentIdentifier);
    if (record)
        _store->update(persistentIdentifier, record->phase, properties);
    return record.has_value();
}

void DownloadList::tell(std::int64_t persistentIdentifier) {
    const std::lock_guard lock(_mutex);
    if (auto record = _store->find(persistentIdentifier)) {
        const std::string kind = record->kind;
        tellManagers(kind, {std::make_shared<Download>(*std::move(record)), false, false});
    }
}

bool DownloadList::remove(std::int64_t persistentIdentifier) {
    const std::lock_guard lock(_mutex);
    const auto record = _store->find(persistentIdentifier);
    if (record)
        removeHoldingMutex(*record);
    return record.has_value();
}

DownloadList::Cancellation DownloadList::cancel(std::int64_t persistentIdentifier) {
    const std::lock_guard lock(_mutex);
    const auto record = _store->find(persistentIdentifier);
    if (!record)
        return Cancellation::Unknown;
    if (record->phase == VDDownloadPhaseInstalling)
        return Cancellation::TooLate;
    removeHoldingMutex(*record);
    return Cancellation::Done;
}

void DownloadList::removeHoldingMutex(const DownloadRecord& record) {
    _store->remove(record.persistentIdentifier);
    tellManagers(record.kind, {nullptr, true, isActivePhase(record.phase)});
}

void DownloadList::tellManagers(std::string_view kind, const DownloadChange& change) {
    for (const auto& weakManager : _managers)
        if (const auto manager = weakManager.lock(); manager && manager->seesKind(kind))
            manager->note(change);
}

}  // namespace downloads
